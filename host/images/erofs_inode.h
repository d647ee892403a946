// EROFS inodes.

#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <string>

#include "erofs_head.h"
#include "source.h"

namespace images::erofs {

enum class Layout : uint8_t {
    kPlain = 0,
    kCompressed = 1,
    kInline = 2,
    kCompactlyCompressed = 3,
    kChunks = 4,
};

// Its type and layout are known ones; the places of its data are not checked.
struct Inode {
    uint64_t id;
    mode_t mode;
    uid_t user;
    gid_t group;
    uint64_t size;    // in bytes; 0 for types without data
    int64_t seconds;  // of the last change of the content, since 1970
    uint32_t nanoseconds;
    Layout layout;
    uint64_t start;         // block of the data, or kHole
    uint16_t chunk_format;  // with Layout::kChunks
    uint64_t end;  // of the inode, in bytes, in its space; the tables or data of the layout follow
};

constexpr uint64_t kHole = ~uint64_t{0};

// Throws Damage with the inode's number and `what`.
[[noreturn]] void Fail(uint64_t id, const std::string& what);

// Reads an inode from its space, the image or the metabox. Throws Damage if there is none with this
// number, which may be any, or it is malformed.
Inode ReadInode(const Head& head, const Source& space, uint64_t id);

}  // namespace images::erofs
