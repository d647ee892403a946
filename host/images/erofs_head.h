// What an EROFS image says about itself as a whole.

#pragma once

#include <stdint.h>

#include <optional>

#include "source.h"

namespace images::erofs {

enum Algorithm : uint8_t { kLz4, kMicroLzma, kDeflate, kZstd, kAlgorithms };

// Inodes whose number has this bit lie in the data of another inode, the metabox.
constexpr uint64_t kInMetabox = uint64_t{1} << 63;

struct Head {
    unsigned block_bits;
    uint64_t inodes;  // where inode 0 would be, in bytes
    int64_t seconds;  // what times of compact inodes count from
    uint32_t nanoseconds;
    uint64_t root;
    uint64_t packed;           // the inode whose data are fragments of other files, or 0
    uint64_t metabox;          // the inode whose data are inodes, or 0
    unsigned algorithms;       // a bit for each that may be met
    uint32_t lzma_dictionary;  // in bytes
    bool is_padded;            // compressed data end where their blocks end

    uint64_t block_size() const { return uint64_t{1} << block_bits; }
};

// Returns nothing if the source is no EROFS image. Throws Damage if it is one that cannot be read.
std::optional<Head> ReadHead(const Source& source);

}  // namespace images::erofs
