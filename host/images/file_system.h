// A read-only file system in an image: numbered nodes, and directories that name them. Images are
// untrusted: every value is checked before it is used.

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
    uint64_t size = 0;    // in bytes; for a directory only a hint
    int64_t seconds = 0;  // of the last change of the content, since 1970
    uint32_t nanoseconds = 0;
};

struct Name {
    std::string name;
    uint64_t node = 0;
};

// All functions take any number as a node. They throw Damage if there is no such node, it is of
// another type than the function's, or the image is damaged or exceeds a limit. They read no more
// of the image than their result takes.
class FileSystem {
  public:
    virtual ~FileSystem() = default;

    // Returns the root directory's node.
    virtual uint64_t root() const = 0;

    // Returns a node of any type.
    virtual Node Look(uint64_t node) const = 0;

    // Returns the entries of a directory, in any order, without "." and "..". Throws Damage unless
    // all names are distinct and have 1 to 255 bytes without "/" and zero bytes. Their nodes may be
    // missing ones.
    virtual std::vector<Name> List(uint64_t directory) const = 0;

    // Returns up to `size` bytes of a regular file from `offset` on, fewer only at its end and none
    // after it.
    virtual std::string Read(uint64_t file, uint64_t offset, size_t size) const = 0;

    // Returns the target of a symbolic link, 1 to 4095 bytes without a zero byte.
    virtual std::string Target(uint64_t link) const = 0;
};

// Throws Damage, which names the directory, unless its names are as List() promises and not more
// than limits::kImageNames.
void CheckNames(uint64_t directory, const std::vector<Name>& names);

// Each returns the file system in the source, which must outlive it, or null if the source does not
// have its magic number. Throws Damage if the superblock is damaged or not supported, or if
// compressed content ends before the place of one.
std::unique_ptr<FileSystem> OpenErofs(const Source& source);
std::unique_ptr<FileSystem> OpenExt4(const Source& source);

}  // namespace images
