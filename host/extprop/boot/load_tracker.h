// Follows the library's loads of property files: which file is read into which of its maps, on
// whose import, and what the lines of it are.

#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "boot/real_path.h"
#include "boot/report.h"

namespace extprop {

// What the tracker tells, in the order of time, of one load after the other.
class LoadListener {
  public:
    virtual ~LoadListener() = default;
    virtual void OnLoadBegun(LoadEvent event) = 0;
    virtual void OnLinesRead(LinesRead lines) = 0;
};

class LoadTracker {
  public:
    // Tells of the lines whose names `wanted` takes; of loads alone if it is empty.
    LoadTracker(LoadListener* listener, std::function<bool(const std::string& name)> wanted)
            : listener_(listener), wanted_(std::move(wanted)) {}

    // The library's loader begins and ends, on the calling thread.
    void Begin(const std::string& path, const char* filter, const PropertyMap* map);
    void End(const PropertyMap* map);

    // The library hands properties to init from the calling thread; `chain` is how it came there
    // and `frame` lies below all of its frames. Returns which of its maps it hands on, if it is one
    // that property files were loaded into.
    std::optional<int> HandedOver(const std::vector<std::string>& chain, const void* frame);

    // Forgets the calling thread's maps but for `kept`, init's own.
    void ForgetMaps(const PropertyMap* kept);

    // Notes every name that is loaded into `map` from now on, or none if it is null.
    void NoteNames(const PropertyMap* map);
    std::set<std::string> TakeNames();
    bool notes_names() const { return noted_map_ != nullptr; }

    // init takes what is in its own map. Returns which map that is, if anything was loaded into it.
    std::optional<int> TakenOver(const PropertyMap* map);

    // Whether the boot wrote the device's own file.
    bool WasWritten(const std::string& own) const;

    // The boot writes the file at `path` or binds a directory over another.
    void Written(const std::string& path);
    void Bound(const std::string& source, const std::string& target, bool recursive);

    // Returns the device's own file behind `path`, if it has another name.
    std::optional<std::string> SourceOf(const std::string& path) const;

    // Reads the whole regular file at `path`, which is no link; nothing of anything else.
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

    mutable std::mutex mutex_;  // of what the threads share
    BindMounts binds_;
    std::set<std::string> written_;
    int maps_ = 0;
    int loads_ = 0;
    const PropertyMap* noted_map_ = nullptr;
    std::set<std::string> noted_names_;
};

}  // namespace extprop
