// EROFS images written by hand, with features that the installed mkfs.erofs does not write: one
// file in one directory, with an inode and data of the test's choice.

#pragma once

#include <stdint.h>

#include <string>

namespace erofs_image {

// The lowest 16, 32 or 64 bits of the number, in little-endian bytes.
std::string P16(uint64_t number);
std::string P32(uint64_t number);
std::string P64(uint64_t number);

// Returns lines of text, `size` bytes in all, always the same ones.
std::string Text(size_t size);

enum Algorithm { kLz4, kMicroLzma, kDeflate, kZstd, kAlgorithms };
// Returns the content compressed as one extent of an image holds it. Throws std::logic_error if the
// algorithm is none of these.
std::string Compress(int algorithm, const std::string& content);

// Pad bytes with zeros up to the size, which must not be smaller than theirs.
std::string PadFront(const std::string& bytes, size_t size);
std::string PadBack(const std::string& bytes, size_t size);

// Inodes of user 7 and group 8. `format` is a layout and other bits of the format field, `size` is
// the file's in bytes, `start` the field whose meaning depends on the layout, such as the first
// block, and `high` the link count or the high bits of `start`.
constexpr unsigned kPlain = 0, kCompressed = 1 << 1, kInline = 2 << 1, kCompact = 3 << 1,
                   kChunks = 4 << 1, kExtended = 1, kShort = 0x10;
std::string Inode(unsigned format, uint64_t size, uint64_t start, uint16_t high = 1,
                  uint16_t mode = 0100644);

// The header of a map, and an index of the full form.
std::string MapHeader(uint32_t first, uint16_t advice, uint8_t algorithms = 0, uint8_t bits = 0);
std::string Index(uint16_t type, uint16_t low, uint32_t block);

// Places are offsets in bytes from the image's start.
struct Image {
    unsigned block_bits = 12;
    uint32_t features = 0x1A3;   // padding, records, fragments, 48 bits, metabox
    std::string file;            // the file's inode and what follows it
    std::string data;            // from DataPlace() on
    std::string packed;          // of the packed inode
    bool is_in_metabox = false;  // the file's inode

    uint64_t block() const { return uint64_t{1} << block_bits; }
    uint64_t Inodes() const;     // the place of the inodes
    uint64_t FilePlace() const;  // of the file's inode, unless that is in the metabox
    uint64_t DataPlace() const;
    uint32_t DataBlock() const { return static_cast<uint32_t>(DataPlace() / block()); }

    // Returns the image. Nothing is checked: a test may want a wrong one.
    std::string Write() const;
};

constexpr uint64_t kSuperblock = 1024;
constexpr uint64_t kRootId = 1;
constexpr uint64_t kFileId = 16;

}  // namespace erofs_image
