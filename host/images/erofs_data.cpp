#include "erofs_data.h"

#include <string.h>

#include <algorithm>

#include "../budget.h"
#include "erofs_decode.h"
#include "little_endian.h"

namespace images::erofs {

namespace {

// The fields of a chunk format.
constexpr unsigned kChunkBits = 0x1F;     // added to those of a block
constexpr unsigned kChunkIndexes = 0x20;  // of 8 bytes
constexpr unsigned kChunk48Bit = 0x40;
constexpr unsigned kChunkKnown = 0x7F;

}  // namespace

void Data::Read(uint64_t offset, void* to, size_t size) const {
    if (!IsInside(offset, size, inode_.size)) Fail("something beyond the end of its data");
    if (size == 0) return;
    char* const bytes = static_cast<char*>(to);
    switch (inode_.layout) {
        case Layout::kPlain:
            return ReadBlocks(inode_.start, offset, bytes, size);
        case Layout::kInline:
            return ReadInline(offset, bytes, size);
        case Layout::kChunks:
            return ReadChunks(offset, bytes, size);
        default:
            return ReadCompressed(offset, bytes, size);
    }
}

void Data::ReadFrom(const Source& source, uint64_t place, char* to, size_t size) const {
    if (!IsInside(place, size, source.size())) Fail("data beyond the end of the image");
    source.Read(place, to, size);
}

void Data::ReadBlocks(uint64_t start, uint64_t offset, char* to, size_t size) const {
    if (start == kHole) {
        memset(to, 0, size);
        return;
    }
    uint64_t place = start << inodes_.head().block_bits;
    if (__builtin_add_overflow(place, offset, &place)) Fail("data beyond the end of the image");
    ReadFrom(inodes_.image(), place, to, size);
}

// The last block's data follow the inode and must end in the inode's block; all others are in
// blocks.
void Data::ReadInline(uint64_t offset, char* to, size_t size) const {
    const uint64_t block = inodes_.head().block_size();
    const uint64_t in_blocks = (inode_.size - 1) / block * block;
    if (inode_.end % block + (inode_.size - in_blocks) > block) {
        Fail("inline data that cross the end of a block");
    }
    const size_t first = offset < in_blocks ? std::min<uint64_t>(size, in_blocks - offset) : 0;
    if (first != 0) ReadBlocks(inode_.start, offset, to, first);
    if (first == size) return;
    ReadFrom(inodes_.Space(inode_.id), inode_.end + (offset + first - in_blocks), to + first,
             size - first);
}

void Data::ReadChunks(uint64_t offset, char* to, size_t size) const {
    const unsigned format = inode_.chunk_format;
    if ((format & ~kChunkKnown) != 0) Fail("unknown format of chunks");
    const unsigned bits = inodes_.head().block_bits + (format & kChunkBits);
    const bool is_long = (format & kChunkIndexes) != 0;
    const bool has_high = is_long && (format & kChunk48Bit) != 0;
    const uint64_t width = is_long ? 8 : 4;
    const uint64_t table = (inode_.end + width - 1) / width * width;
    const Source& space = inodes_.Space(inode_.id);
    if (!IsInside(table, (((inode_.size - 1) >> bits) + 1) * width, space.size())) {
        Fail("a map that ends after its data");
    }
    const uint64_t first = offset >> bits, last = (offset + size - 1) >> bits;
    const std::string entries = ReadBytes(space, table + first * width, (last - first + 1) * width);
    for (size_t at = 0; at < entries.size(); at += width) {
        const uint64_t in_chunk = offset & ((uint64_t{1} << bits) - 1);
        const size_t count = std::min<uint64_t>(size, (uint64_t{1} << bits) - in_chunk);
        uint64_t start = Little32(entries, at + width - 4);
        uint64_t hole = UINT32_MAX;
        if (is_long && Little16(entries, at + 2) != 0) Fail("a chunk on another device");
        if (has_high) {
            start |= uint64_t{Little16(entries, at)} << 32;
            hole |= uint64_t{UINT16_MAX} << 32;
        }
        ReadBlocks(start == hole ? kHole : start, in_chunk, to, count);
        to += count;
        offset += count;
        size -= count;
    }
}

void Data::ReadCompressed(uint64_t offset, char* to, size_t size) const {
    if (map_.empty()) map_ = ReadMap(inodes_.head(), inode_, inodes_.Space(inode_.id));
    auto next = std::upper_bound(
            map_.begin(), map_.end(), offset,
            [](uint64_t place, const Extent& extent) { return place < extent.start; });
    while (size != 0) {
        const Extent& extent = *(next - 1);
        const uint64_t end = next == map_.end() ? inode_.size : next->start;
        const size_t count = std::min<uint64_t>(size, end - offset);
        ReadExtent(extent, end - extent.start, offset - extent.start, to, count);
        to += count;
        offset += count;
        size -= count;
        if (size != 0) ++next;
    }
}

void Data::ReadExtent(const Extent& extent, uint64_t length, uint64_t offset, char* to,
                      size_t size) const {
    if (extent.coding == Coding::kZeros) {
        memset(to, 0, size);
        return;
    }
    const Head& head = inodes_.head();
    if (extent.coding == Coding::kFragment) {
        // The packed inode and the metabox have no fragments themselves, so that this ends.
        if (head.packed == 0) Fail("a fragment without a packed inode");
        if (inode_.id == head.packed || inode_.id == head.metabox) Fail("a fragment of fragments");
        const Data& packed = inodes_.Packed();
        if (!IsInside(extent.place, length, packed.size())) {
            Fail("a fragment beyond the packed inode");
        }
        return packed.Read(extent.place + offset, to, size);
    }

    if (extent.size > limits::kErofsCompressed || length > limits::kErofsDecoded) {
        Fail("an extent of " + std::to_string(length) + " bytes in " + std::to_string(extent.size) +
             "; the limits are " + std::to_string(limits::kErofsDecoded) + " in " +
             std::to_string(limits::kErofsCompressed));
    }
    if (extent.coding == Coding::kCompressed) {
        if (decoded_.empty() || decoded_start_ != extent.start) Decode(extent, length);
        memcpy(to, decoded_.data() + offset, size);
        return;
    }
    if (length > extent.size) Fail("an extent without some of its data");
    const Source& source = extent.is_inline ? inodes_.Space(inode_.id) : inodes_.image();
    if (extent.coding == Coding::kPlain) {
        return ReadFrom(source, extent.place + offset, to, size);
    }
    const uint64_t block = head.block_size();
    if (extent.size != block) Fail("an interlaced extent that is not a block");
    const uint64_t begin = (extent.start + offset) % block;
    const size_t first = std::min<uint64_t>(size, block - begin);
    ReadFrom(source, extent.place + begin, to, first);
    ReadFrom(source, extent.place, to + first, size - first);
}

void Data::Decode(const Extent& extent, uint64_t length) const {
    decoded_.clear();
    decoded_.shrink_to_fit();
    const Head& head = inodes_.head();
    std::string bytes(extent.size, '\0');
    ReadFrom(extent.is_inline ? inodes_.Space(inode_.id) : inodes_.image(), extent.place,
             bytes.data(), bytes.size());
    std::string_view stream = bytes;
    if (head.is_padded) {
        const size_t padding = stream.find_first_not_of('\0');
        if (padding == stream.npos || padding >= head.block_size()) Fail("no compressed data");
        stream.remove_prefix(padding);
    }
    std::string decoded(length, '\0');
    if (!erofs::Decode(extent.algorithm, stream, extent.is_partial || !head.is_padded,
                       head.lzma_dictionary, decoded.data(), decoded.size())) {
        Fail("wrong compressed data at " + std::to_string(extent.start));
    }
    decoded_ = std::move(decoded);
    decoded_start_ = extent.start;
}

const Source& Inodes::Space(uint64_t id) const {
    if ((id & kInMetabox) == 0) return image_;
    if (head_.metabox == 0) Fail(id, "there is no metabox");
    return Special(head_.metabox, &metabox_);
}

std::shared_ptr<const Data> Inodes::Open(uint64_t id) const {
    const auto known = std::find_if(open_.begin(), open_.end(),
                                    [&](const auto& data) { return data->inode().id == id; });
    if (known != open_.end()) {
        std::rotate(open_.begin(), known, known + 1);
        return open_.front();
    }
    auto data = std::make_shared<const Data>(*this, ReadInode(head_, Space(id), id));
    if (open_.size() == limits::kErofsOpen) open_.pop_back();
    open_.insert(open_.begin(), data);
    return data;
}

const Data& Inodes::Special(uint64_t id, std::unique_ptr<const Data>* data) const {
    if (*data == nullptr) {
        *data = std::make_unique<const Data>(*this, ReadInode(head_, image_, id));
    }
    return **data;
}

}  // namespace images::erofs
