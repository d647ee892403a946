// A private root for code that uses absolute paths. The code sees a device directory at "/"; its
// mounts and writes take effect there. They go into a copy-on-write layer, which is removed at the
// end, so the device directory itself never changes. Paths are absolute and the device's own unless
// stated otherwise.

#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "changes.h"
#include "process.h"

namespace sandbox {

struct Options {
    char slot = 'a';  // 'a' or 'b': which slot's image to read where there are two
    // Paths of image files on this machine, by the image that each replaces or adds, such as
    // "odm_a".
    std::map<std::string, std::string> images = {};
};

// A file of a partition image.
struct ImagePlace {
    std::string image;  // the file's path, then what in it, as in "super.img(odm_a)"
    std::string name;   // the same for people, as in "odm_a of super.img"
    std::string path;   // in the image, such as "/build.prop"
};

// Returns text such as "/build.prop in my_region of payload.bin in ota.zip".
std::string Name(const ImagePlace& place);

class DeviceFiles;
class View;

class Sandbox {
  public:
    // Prepares a root over `device`, on this machine: a directory, an archive, or a file of
    // partitions. Each partition image is seen as the files in it. Throws std::runtime_error, with
    // the reason, if that fails.
    explicit Sandbox(const std::string& device, const Options& options = {});

    // Prepares the same over a device whose images are open already; not null. Throws as above.
    explicit Sandbox(std::shared_ptr<DeviceFiles> files);

    // Discards all changes and AttachBlockDevice(), so that the sandbox is like a new one. None of
    // its processes may run. In a process that has inherited the object, the later changes are its
    // own. Throws as above.
    void Reset();

    // Starts a process, as StartProcess does, in which the device is "/" and memory and the sizes
    // of written files have limits. Its mounts end with it; the files that it wrote stay until a
    // Reset().
    Process Start(const std::function<int()>& function) const;

    // Starts a process as above and waits for its end, as Process::Wait does.
    Ending Run(const std::function<int()>& function,
               std::chrono::milliseconds limit = std::chrono::seconds(60)) const;

    // Makes the regular file at `path` a block device for processes that are started later: opening
    // it for output does not truncate it, and its size is rounded down to a multiple of 512 bytes.
    // Returns false if there is no such file outside images. Throws std::runtime_error, with the
    // reason, if that fails.
    bool AttachBlockDevice(const std::string& path);

    // Reads the regular file at `path`. Throws std::runtime_error, with the path and the reason, if
    // it is missing, a link or anything else, cannot be read or has more than `most` bytes.
    std::string Read(const std::string& path, size_t most) const;

    // Returns what was created, changed and deleted since the last call, in the order of the paths.
    // A file that was written counts as changed even if its content is the same; a directory counts
    // only if its mode or owner changed. One that cannot be listed is taken for empty.
    std::vector<FileChange> TakeChanges();

    // Returns the device's files, for use in this process itself.
    const View& view() const;

    // Returns the image that holds `path`, or would hold it if its last name is missing; nothing if
    // none does. A link at the end is not followed.
    std::optional<ImagePlace> ImageOf(const std::string& path) const;

    // Returns the places of partitions that are unpacked as a whole on the first look-up. A walk
    // over all files should leave them out.
    const std::vector<std::string>& packed() const;

    // Returns what the user should know of the device directory and of the look-ups so far. Throws
    // as CheckImages() does.
    std::vector<std::string> Notes() const;

    // Returns the files and directories that were looked up so far, by any process and also before
    // a Reset(), and that init could read but this user cannot.
    std::set<std::string> Unreadable() const;

    // Throws std::runtime_error if a look-up so far met damage in an image.
    void CheckImages() const;

  private:
    std::shared_ptr<DeviceFiles> files_;
};

}  // namespace sandbox
