// A private root for code that uses absolute paths: a device directory is seen at "/", mounts and
// writes are real, and all of it is gone at the end, the device directory as it was.

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
    char slot = 'a';  // of a partition that has images for two slots
    // Image files of any place, by the names of those that they replace or add, such as "odm_a".
    std::map<std::string, std::string> images = {};
};

// A file of a partition image.
struct ImagePlace {
    std::string image;  // the file's path; what lies in it follows, as in "super.img(odm_a)"
    std::string name;   // the same for people, as in "odm_a of super.img"
    std::string path;   // in the image, such as "/build.prop"
};

// Such as "/build.prop in my_region of payload.bin in ota.zip".
std::string Name(const ImagePlace& place);

class DeviceFiles;
class View;

class Sandbox {
  public:
    // Prepares a root over `device`, a directory, an archive, or a file of partitions, in which a
    // partition image is seen as the files in it. Throws std::runtime_error, saying why, if the
    // root cannot be had.
    explicit Sandbox(const std::string& device, const Options& options = {});

    // The same over a device whose images are open already.
    explicit Sandbox(std::shared_ptr<DeviceFiles> files);

    // Throws all changes away, so that the sandbox is as a new one; none of its processes may run.
    // A process that has the object from its parent gets changes of its own so. Throws as above.
    void Reset();

    // Starts a process, as StartProcess does, in which the device is "/". Mounts made there end
    // with the process; written files stay.
    Process Start(const std::function<int()>& function) const;

    // Starts a process as above and waits for its end.
    Ending Run(const std::function<int()>& function,
               std::chrono::milliseconds limit = std::chrono::seconds(60)) const;

    // Makes the regular file at the device's `path` a block device: what opens it for output does
    // not truncate it. What is left over of 512 bytes is out of reach. Returns false if there is
    // no such file. Throws std::runtime_error, saying why, if this cannot be had.
    bool AttachBlockDevice(const std::string& path);

    // Reads the device's regular file at `path`, which is no link. Throws std::runtime_error,
    // saying why, if it cannot be read or has more than `most` bytes.
    std::string Read(const std::string& path, size_t most) const;

    // Returns what was created, changed and deleted since the last time, in the order of the paths.
    // A file that was written counts as changed, whatever was written; a directory by its mode and
    // owner only.
    std::vector<FileChange> TakeChanges();

    // The device's files, for this process itself.
    const View& view() const;

    // Returns the image that the device's `path` lies in, if it is in one.
    std::optional<ImagePlace> ImageOf(const std::string& path) const;

    // Returns the places of partitions that are unpacked as a whole when somebody looks into them:
    // who looks at all files should leave them out.
    const std::vector<std::string>& packed() const;

    // Returns what the user should know about what lies in the device directory, and about what was
    // looked for so far. Throws as CheckImages() does.
    std::vector<std::string> Notes() const;

    // Returns those of the files and directories that this user cannot read, though init could,
    // that were looked for so far, before a Reset() and in other processes too.
    std::set<std::string> Unreadable() const;

    // Throws std::runtime_error if something was looked for so far that is damaged in its image.
    void CheckImages() const;

  private:
    std::shared_ptr<DeviceFiles> files_;
};

}  // namespace sandbox
