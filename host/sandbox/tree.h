// A tree of files that a mount shows. Each function does what the kernel would do for root, and
// returns 0 or the result that its comment names, or else a negative errno: -EIO for damage in an
// image. Paths are those in the tree and contain no links: "" is its root, "/etc/a.prop" a file two
// levels below.

#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

namespace sandbox {

struct Listed {
    std::string name;
    unsigned char type;  // DT_REG and so on, or DT_UNKNOWN
};

// Returns the path of the directory of `path`, which must not be the root.
inline std::string ParentOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

class Tree {
  public:
    virtual ~Tree() = default;

    // Puts the status of what is at `path` into `*status`, without following a link.
    virtual long Status(const std::string& path, struct stat* status) const = 0;

    // Puts the target of the link at `path` into `*target`. Returns its length.
    virtual long Target(const std::string& path, std::string* target) const = 0;

    // Adds the names in the directory to `*names`, in any order, except "." and "..".
    virtual long List(const std::string& directory, std::vector<Listed>* names) const = 0;

    // Opens a directory or regular file for reading, with flags of open(2). Returns the descriptor,
    // which the caller closes; -ELOOP for a link, -ENXIO for anything else. With O_DIRECTORY a link
    // or file is -ENOTDIR.
    virtual long Open(const std::string& path, int flags) const = 0;

    // Returns whether the kernel's getdents64(2) and fstat(2) of a descriptor from Open() give the
    // tree's names and status.
    virtual bool is_kernels() const { return true; }
};

}  // namespace sandbox
