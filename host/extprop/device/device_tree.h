// The files of a device directory by the paths that they have on the device.

#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "view.h"

namespace extprop {

// One file, directory or link.
struct FoundFile {
    std::string path;    // the device's, such as "/odm/build.prop", without links on the way
    struct stat status;  // as the device shows it

    bool is_file() const { return S_ISREG(status.st_mode); }
    bool is_directory() const { return S_ISDIR(status.st_mode); }
    bool is_link() const { return S_ISLNK(status.st_mode); }
};

// Paths are absolute paths of the device. An image is unpacked, and damage in it noted, when a
// look-up first needs it.
class DeviceTree {
  public:
    // The view must outlive this.
    explicit DeviceTree(const sandbox::View& view) : view_(view) {}

    // Finds what the device would find at `path`: links lead to the device's own files. A link in
    // the last component is followed only if `follow` is set. Returns false, with errno set and
    // `*place` as it was, if there is nothing or it cannot be looked up.
    bool Find(const std::string& path, bool follow, FoundFile* place) const;

    // Returns everything below the root except what lies in the directories `left_out`, in the
    // order of the paths. Leaves out what cannot be looked up and paths that are too long to open.
    // Adds directories that cannot be read to `*unreadable`, the root as "". Throws
    // std::runtime_error above limits::kDeviceFiles or limits::kDevicePaths.
    std::vector<FoundFile> All(const std::vector<std::string>& left_out,
                               std::vector<std::string>* unreadable) const;

    // Returns the names in the directory, sorted; none if there is no such directory or it cannot
    // be read. A link to a directory is followed; "" is the root.
    std::vector<std::string> Names(const std::string& directory) const;

    // Puts the content of the regular file at `path` into `*content`. Returns false, with errno
    // set, if it is missing, a link or anything else, has more than `most` bytes or cannot be read;
    // `*content` may then have changed.
    bool Read(const std::string& path, size_t most, std::string* content) const;

  private:
    const sandbox::View& view_;
};

}  // namespace extprop
