// Follows how the library loads property files: which file goes into which of the library's maps,
// which line imported it, and what lines it has.

#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "boot/real_path.h"
#include "boot/report.h"

namespace extprop {

// Receives the loads and their lines in the order of time, on the thread that loads. The lines of a
// load may come in several parts.
class LoadListener {
  public:
    virtual ~LoadListener() = default;
    virtual void OnLoadBegun(LoadEvent event) = 0;
    virtual void OnLinesRead(LinesRead lines) = 0;
};

class LoadTracker {
  public:
    // Reports each load, and those lines for whose names `wanted` returns true; no lines if
    // `wanted` is an empty function. The listener must outlive this.
    LoadTracker(LoadListener* listener, std::function<bool(const std::string& name)> wanted)
            : listener_(listener), wanted_(std::move(wanted)) {}

    // Call these in pairs, on the loader's thread, when it begins a file and when it is done with
    // it; the pairs of imported files lie between the two. A null or empty `filter` is none.
    // `map` is the one that the loader adds to. A file that cannot be read is a load without lines.
    void Begin(const std::string& path, const char* filter, const PropertyMap* map);
    void End(const PropertyMap* map);

    // Call it when the library, on the calling thread, hands properties to init. `chain` is its
    // CallChain(), and `frame` an address below all of its stack frames. Returns the number of the
    // map that is handed over, or nothing if no property file was loaded into it.
    std::optional<int> HandedOver(const std::vector<std::string>& chain, const void* frame);

    // Forgets the calling thread's maps except `kept`, init's own.
    void ForgetMaps(const PropertyMap* kept);

    // Records every name that is loaded into `map` from now on; none if it is null.
    void NoteNames(const PropertyMap* map);
    // Returns the names that were recorded since the last call.
    std::set<std::string> TakeNames();
    bool notes_names() const { return noted_map_ != nullptr; }

    // Call it when init takes the properties of its own map. Returns the map's number, or nothing
    // if no file was loaded into it.
    std::optional<int> TakenOver(const PropertyMap* map);

    // Returns whether the boot has written the device's own file `own`.
    bool WasWritten(const std::string& own) const;

    // Call these when the boot has written the file at `path`, or has bound a directory over
    // another; the arguments of Bound() are those of BindMounts::Add().
    void Written(const std::string& path);
    void Bound(const std::string& source, const std::string& target, bool recursive);

    // Returns the device's own path of the file at `path`, if that is another path.
    std::optional<std::string> SourceOf(const std::string& path) const;

    // Returns the content of the regular file at `path`, or nothing if it is a link or anything
    // else or cannot be read.
    static std::optional<std::string> Content(const std::string& path);

  private:
    struct Load;
    struct Map;
    struct ThreadLoads;

    static ThreadLoads& Loads();

    int MapFor(const PropertyMap* map);
    void ReadLines(Load* load, const std::string* import_path);

    LoadListener* listener_;
    std::function<bool(const std::string& name)> wanted_;

    mutable std::mutex mutex_;  // guards what the threads share
    BindMounts binds_;
    std::set<std::string> written_;
    int maps_ = 0;
    int loads_ = 0;
    std::atomic<const PropertyMap*> noted_map_ = nullptr;  // of one thread; all compare theirs
    std::set<std::string> noted_names_;                    // of that thread
};

}  // namespace extprop
