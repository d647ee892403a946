// The map from a compressed EROFS file to the places of its data.

#pragma once

#include <stdint.h>

#include <vector>

#include "erofs_head.h"
#include "erofs_inode.h"

namespace images::erofs {

enum class Coding : uint8_t {
    kZeros,
    kPlain,       // the first bytes that are stored
    kInterlaced,  // one block: each byte is at its offset in the file modulo the block size
    kFragment,    // in the packed inode
    kCompressed,
};

// A piece of a file, which ends where the next one starts. Its place and size are not checked.
struct Extent {
    uint64_t start;  // in the file, in bytes
    uint64_t place;  // in the image, the inode's space or the packed inode, in bytes
    uint32_t size;   // there, in bytes
    Coding coding;
    Algorithm algorithm;  // if compressed
    bool is_partial;      // the compressed data hold more than this extent
    bool is_inline;       // in the inode's space
};

// Reads the extents of a compressed file, which must not be empty, from the inode's space. Returns
// at least one; the first starts at 0, each later one after the one before it and inside the file.
// Throws Damage if the map is malformed or exceeds a limit.
std::vector<Extent> ReadMap(const Head& head, const Inode& inode, const Source& space);

}  // namespace images::erofs
