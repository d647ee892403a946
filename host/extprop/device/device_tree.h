// The files of a device directory by the paths that they have on the device.

#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "view.h"

namespace extprop {

// One file, directory or link.
struct Place {
    std::string path;  // the device's, such as "/odm/build.prop", without links on the way
    struct stat status;

    bool is_file() const { return S_ISREG(status.st_mode); }
    bool is_directory() const { return S_ISDIR(status.st_mode); }
    bool is_link() const { return S_ISLNK(status.st_mode); }
};

class DeviceTree {
  public:
    explicit DeviceTree(const sandbox::View& view) : view_(view) {}

    // Finds what the device would find at `path`: links on the way lead to the device's own files.
    // A link as the last component is followed only if `follow` is set. Returns false, with errno
    // set, if there is nothing.
    bool Find(const std::string& path, bool follow, Place* place) const;

    // Returns everything in the tree but what lies in the directories `left_out`, in the order of
    // the paths. Directories that cannot be read are added to `*unreadable`. Throws
    // std::runtime_error if there is more than any device has.
    std::vector<Place> All(const std::vector<std::string>& left_out,
                           std::vector<std::string>* unreadable) const;

    // Returns the names in the directory, in their order; none if there is no such directory.
    std::vector<std::string> Names(const std::string& directory) const;

    // Puts in the content of the regular file at `path`, which is no link and has at most `most`
    // bytes. Returns false, with errno set, if that cannot be.
    bool Read(const std::string& path, size_t most, std::string* content) const;

  private:
    const sandbox::View& view_;
};

}  // namespace extprop
