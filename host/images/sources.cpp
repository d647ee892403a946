#include "sources.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string>

#include "../budget.h"

namespace images {

namespace {

constexpr uint32_t kSparseMagic = 0xed26ff3a;

// No file is larger.
constexpr uint64_t kMostBytes = INT64_MAX;

struct [[gnu::packed]] SparseHeader {
    uint32_t magic;
    uint16_t major, minor, header_size, chunk_header_size;
    uint32_t block_size, blocks, chunks, checksum;
};

struct [[gnu::packed]] ChunkHeader {
    uint16_t type, reserved;
    uint32_t blocks, size;
};

enum ChunkType : uint16_t { kRaw = 0xcac1, kFill = 0xcac2, kDontCare = 0xcac3, kChecksum = 0xcac4 };

// A chunk of a sparse image, by the place of its bytes in the image that it stands for.
struct SparseChunk {
    uint64_t begin, size;
    uint64_t place;  // in the source, or the word
    ChunkType type;
};

template <typename Record>
Record ReadRecord(const Source& source, uint64_t offset) {
    Record record;
    source.Read(offset, &record, sizeof(record));
    return record;
}

bool IsWithin(uint64_t offset, uint64_t size, uint64_t end) {
    return offset <= end && size <= end - offset;
}

}  // namespace

FileSource::FileSource(int fd) : fd_(fd) {
    const off_t size = lseek(fd, 0, SEEK_END);  // of a block device too
    if (size == -1) throw Damage(std::string("cannot be read: ") + strerror(errno));
    size_ = size;
}

void FileSource::Read(uint64_t offset, void* to, size_t size) const {
    if (!IsWithin(offset, size, size_)) throw Damage("truncated");
    if (size > limits::kImageBytes - read_) {
        throw Damage("more than " + std::to_string(limits::kImageBytes) + " bytes read in all");
    }
    read_ += size;
    for (size_t done = 0; done < size;) {
        const ssize_t n = pread(fd_, static_cast<char*>(to) + done, size - done,
                                static_cast<off_t>(offset + done));
        if (n == -1 && errno == EINTR) continue;
        if (n == -1) throw Damage(std::string("cannot be read: ") + strerror(errno));
        if (n == 0) throw Damage("truncated");
        done += n;
    }
}

void ExtentSource::Add(uint64_t size, uint64_t place, bool is_fill) {
    if (size > kMostBytes - size_) throw Damage("larger than any file");
    if (size == 0) return;
    extents_.push_back({size_, place, is_fill});
    size_ += size;
}

void ExtentSource::AddPart(uint64_t size, uint64_t offset) {
    if (!IsWithin(offset, size, base_.size())) throw Damage("truncated");
    Add(size, offset, false);
}

void ExtentSource::AddFill(uint64_t size, uint32_t word) {
    Add(size, word, true);
}

void ExtentSource::Read(uint64_t offset, void* to, size_t size) const {
    if (!IsWithin(offset, size, size_)) throw Damage("truncated");
    const auto after = std::upper_bound(
            extents_.begin(), extents_.end(), offset,
            [](uint64_t wanted, const Extent& extent) { return wanted < extent.begin; });
    auto* bytes = static_cast<char*>(to);
    for (size_t next = after - extents_.begin(); size != 0; ++next) {
        const Extent& found = extents_[next - 1];
        const uint64_t end = next == extents_.size() ? size_ : extents_[next].begin;
        const uint64_t inside = offset - found.begin;
        const size_t part = std::min<uint64_t>(size, end - offset);
        if (!found.is_fill) {
            base_.Read(found.place + inside, bytes, part);
        } else if (found.place == 0) {
            memset(bytes, 0, part);
        } else {
            for (size_t i = 0; i < part; ++i) {
                bytes[i] = static_cast<char>(found.place >> (inside + i) % 4 * 8);
            }
        }
        bytes += part;
        offset += part;
        size -= part;
    }
}

JoinedSource::JoinedSource(std::vector<const Source*> parts) : parts_(std::move(parts)) {
    uint64_t end = 0;
    for (const Source* part : parts_) {
        if (part->size() > kMostBytes - end) throw Damage("larger than any file");
        ends_.push_back(end += part->size());
    }
}

void JoinedSource::Read(uint64_t offset, void* to, size_t size) const {
    if (!IsWithin(offset, size, this->size())) throw Damage("truncated");
    size_t i = std::upper_bound(ends_.begin(), ends_.end(), offset) - ends_.begin();
    for (auto* bytes = static_cast<char*>(to); size != 0; ++i) {
        const size_t part = std::min<uint64_t>(size, ends_[i] - offset);
        parts_[i]->Read(offset - (ends_[i] - parts_[i]->size()), bytes, part);
        bytes += part;
        offset += part;
        size -= part;
    }
}

namespace {

// Calls `found` for each chunk that stands for bytes of the image. Returns the size of the image, 0
// if the source is no sparse image.
uint64_t ForEachChunk(const Source& source,
                      const std::function<void(const SparseChunk& chunk)>& found) {
    if (source.size() < sizeof(SparseHeader)) return 0;
    const auto header = ReadRecord<SparseHeader>(source, 0);
    if (header.magic != kSparseMagic) return 0;
    if (header.major != 1 || header.block_size == 0 || header.block_size % 4 != 0 ||
        header.header_size < sizeof(SparseHeader) ||
        header.chunk_header_size < sizeof(ChunkHeader)) {
        throw Damage("an Android sparse image of an unknown kind");
    }
    if (header.chunks > limits::kSparseChunks) {
        throw Damage("a sparse image of more than " + std::to_string(limits::kSparseChunks) +
                     " chunks");
    }
    uint64_t at = header.header_size, begin = 0;
    for (uint32_t i = 0; i < header.chunks; ++i) {
        const auto chunk = ReadRecord<ChunkHeader>(source, at);
        const uint64_t size = uint64_t{chunk.blocks} * header.block_size;
        const uint64_t data = at + header.chunk_header_size;
        const uint64_t data_size = uint64_t{chunk.size} - header.chunk_header_size;
        if (chunk.size >= header.chunk_header_size && chunk.type == kRaw && data_size == size) {
            found({begin, size, data, kRaw});
        } else if (chunk.type == kFill && data_size == sizeof(uint32_t)) {
            found({begin, size, ReadRecord<uint32_t>(source, data), kFill});
        } else if (chunk.type == kDontCare && data_size == 0) {
            found({begin, size, 0, kDontCare});
        } else if (chunk.type != kChecksum || data_size != sizeof(uint32_t) || size != 0) {
            throw Damage("a damaged chunk in a sparse image, at byte " + std::to_string(at));
        }
        at += chunk.size;
        begin += size;
    }
    if (begin != uint64_t{header.blocks} * header.block_size) {
        throw Damage("a sparse image with missing chunks");
    }
    return begin;
}

}  // namespace

std::unique_ptr<Source> OpenSparse(const Source& source) {
    auto content = std::make_unique<ExtentSource>(source);
    const uint64_t size = ForEachChunk(source, [&content](const SparseChunk& chunk) {
        if (chunk.type == kRaw) {
            content->AddPart(chunk.size, chunk.place);
        } else {
            content->AddFill(chunk.size, static_cast<uint32_t>(chunk.place));
        }
    });
    return size == 0 ? nullptr : std::move(content);
}

std::unique_ptr<Source> JoinSparse(const std::vector<const Source*>& parts, const Source& joined) {
    std::vector<SparseChunk> chunks;
    uint64_t part_begin = 0, end = 0;
    for (const Source* part : parts) {
        const uint64_t size = ForEachChunk(*part, [&](SparseChunk chunk) {
            if (chunk.type == kDontCare) return;
            if (chunk.type == kRaw) chunk.place += part_begin;
            if (chunks.size() == limits::kSparseChunks) {
                throw Damage("sparse images of more than " + std::to_string(limits::kSparseChunks) +
                             " chunks");
            }
            chunks.push_back(chunk);
        });
        if (size == 0) throw Damage("a part of a split image that is no Android sparse image");
        end = std::max(end, size);
        part_begin += part->size();
    }
    std::sort(chunks.begin(), chunks.end(),
              [](const SparseChunk& a, const SparseChunk& b) { return a.begin < b.begin; });
    auto content = std::make_unique<ExtentSource>(joined);
    for (const SparseChunk& chunk : chunks) {
        if (chunk.begin < content->size()) throw Damage("parts of a split image that overlap");
        content->AddFill(chunk.begin - content->size(), 0);
        if (chunk.type == kRaw) {
            content->AddPart(chunk.size, chunk.place);
        } else {
            content->AddFill(chunk.size, static_cast<uint32_t>(chunk.place));
        }
    }
    content->AddFill(end - content->size(), 0);
    return content;
}

}  // namespace images
