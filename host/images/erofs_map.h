// Where the data of a compressed EROFS file are.

#pragma once

#include <stdint.h>

#include <vector>

#include "erofs_head.h"
#include "erofs_inode.h"

namespace images::erofs {

enum class Coding : uint8_t {
    kZeros,
    kPlain,       // the first bytes of what is stored
    kInterlaced,  // one block: a byte of the file has the same place in it as in a block of the
                  // file
    kFragment,    // in the packed inode
    kCompressed,
};

// A piece of a file, up to where the next one starts.
struct Extent {
    uint64_t start;  // in the file
    uint64_t place;  // in the image, the inode's space or the packed inode
    uint32_t size;   // as it is stored there
    Coding coding;
    Algorithm algorithm;  // if compressed
    bool is_partial;      // compressed together with something that follows
    bool is_inline;       // in the inode's space
};

// Reads the extents of a compressed file that is not empty, from the inode's space. The first
// starts at 0. Throws Damage.
std::vector<Extent> ReadMap(const Head& head, const Inode& inode, const Source& space);

}  // namespace images::erofs
