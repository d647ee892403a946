// The superblock of an EROFS image.

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
    uint64_t inodes;  // the place of inode 0, in bytes
    int64_t seconds;  // the origin of the times of compact inodes, since 1970
    uint32_t nanoseconds;
    uint64_t root;             // the number of the root directory's inode, not checked
    uint64_t packed;           // the inode whose data are fragments of other files, or 0
    uint64_t metabox;          // the inode whose data are inodes, or 0
    unsigned algorithms;       // a bit for each that extents may use
    uint32_t lzma_dictionary;  // in bytes
    bool is_padded;            // compressed data begin with zeros and end where their blocks end

    uint64_t block_size() const { return uint64_t{1} << block_bits; }
};

// Returns nothing if the source is no EROFS image, for example too short. Throws Damage if its
// superblock is damaged, or declares features that are unknown or not supported.
std::optional<Head> ReadHead(const Source& source);

}  // namespace images::erofs
