// A file system in an image, read-only: numbered nodes, and names that lead from one to another.
// Images come from strangers: nothing in one is believed before it is checked.

#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "source.h"

namespace images {

// A file, directory or link.
struct Node {
    uint64_t id = 0;
    mode_t mode = 0;  // type and permissions, as in stat
    uid_t user = 0;
    gid_t group = 0;
    uint64_t size = 0;    // in bytes; of a directory not more than a hint
    int64_t seconds = 0;  // of the last change of the content
    uint32_t nanoseconds = 0;
};

struct Name {
    std::string name;
    uint64_t node = 0;
};

// All functions throw Damage. None reads more of the image than its answer takes.
class FileSystem {
  public:
    virtual ~FileSystem() = default;

    // Returns the root directory's node.
    virtual uint64_t root() const = 0;

    // Looks at a node. Numbers may be anything.
    virtual Node Look(uint64_t node) const = 0;

    // Returns what a directory holds, without "." and "..". A name is 1 to 255 bytes without a "/"
    // or zero byte, not "." or "..", and none stands twice: all else is damage.
    virtual std::vector<Name> List(uint64_t directory) const = 0;

    // Returns up to `size` bytes of a regular file from `offset` on, fewer only at its end.
    virtual std::string Read(uint64_t file, uint64_t offset, size_t size) const = 0;

    // Returns where a symbolic link leads, 1 to 4095 bytes without a zero byte.
    virtual std::string Target(uint64_t link) const = 0;
};

// Throws Damage that names the directory unless its names are as List() promises, and their number
// is within the limit.
void CheckNames(uint64_t directory, const std::vector<Name>& names);

// Each returns the file system in the source, which must live as long, or null if the source has
// not its magic. Throw Damage if its head cannot be used.
std::unique_ptr<FileSystem> OpenErofs(const Source& source);
std::unique_ptr<FileSystem> OpenExt4(const Source& source);

}  // namespace images
