// A tree of files that a mount shows. Each function does what the kernel would do for root, and
// returns what the kernel would return: a result, or a negative errno. Paths are the tree's,
// without links: "" is its root, "/etc/a.prop" a file two below.

#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

namespace sandbox {

struct Listed {
    std::string name;
    unsigned char type;  // DT_REG and so on, or DT_UNKNOWN
};

// Returns the path of the directory that `path`, which is not the root, lies in.
inline std::string ParentOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

class Tree {
  public:
    virtual ~Tree() = default;

    // Looks at what is there itself, be it a link.
    virtual long Status(const std::string& path, struct stat* status) const = 0;

    // Puts in where the link leads.
    virtual long Target(const std::string& path, std::string* target) const = 0;

    // Adds the names in the directory but "." and "..".
    virtual long List(const std::string& directory, std::vector<Listed>* names) const = 0;

    // Opens a directory or regular file, with the flags of open(2) that go with reading; a link is
    // -ELOOP, all else -ENXIO. Returns the descriptor.
    virtual long Open(const std::string& path, int flags) const = 0;

    // Whether the kernel itself tells the names in an open directory, and what an open file is.
    virtual bool is_kernels() const { return true; }
};

}  // namespace sandbox
