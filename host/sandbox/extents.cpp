#include "extents.h"

#include <errno.h>
#include <fcntl.h>
#include <openssl/sha.h>
#include <stddef.h>
#include <string.h>
#include <sys/sendfile.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include <android-base/file.h>

#include "checks.h"

using android::base::unique_fd;

namespace sandbox {

namespace {

constexpr uint32_t kSparseMagic = 0xed26ff3a;
constexpr uint32_t kGeometryMagic = 0x616c4467;
constexpr uint32_t kMetadataMagic = 0x414c5030;
constexpr uint16_t kMetadataMajor = 10;
constexpr uint64_t kSectorSize = 512;

// The start of a super partition: a reserved block, the geometry and its copy, the metadata.
constexpr uint64_t kGeometryOffsets[] = {4096, 8192};
constexpr uint64_t kMetadataOffset = 12288;

// Bounds on what a damaged header can ask for.
constexpr uint32_t kMostMetadata = 16 << 20;

[[noreturn]] void Damaged(const std::string& what) {
    throw std::runtime_error(what);
}

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

using Digest = uint8_t[SHA256_DIGEST_LENGTH];

struct [[gnu::packed]] Geometry {
    uint32_t magic, size;
    Digest checksum;
    uint32_t metadata_size, slots, block_size;
};

struct [[gnu::packed]] Table {
    uint32_t offset, count, entry_size;
};

struct [[gnu::packed]] MetadataHeader {
    uint32_t magic;
    uint16_t major, minor;
    uint32_t size;
    Digest checksum;
    uint32_t tables_size;
    Digest tables_checksum;
    Table partitions, extents, groups, devices;
};

struct [[gnu::packed]] PartitionEntry {
    char name[36];
    uint32_t attributes, first_extent, extents, group;
};

struct [[gnu::packed]] ExtentEntry {
    uint64_t sectors;
    uint32_t type;
    uint64_t sector;
    uint32_t device;
};

enum ExtentType : uint32_t { kLinear = 0, kZero = 1 };

template <typename Record>
Record RecordAt(const std::string& bytes, uint64_t offset) {
    if (offset > bytes.size() || bytes.size() - offset < sizeof(Record)) Damaged("cut off");
    Record record;
    memcpy(&record, bytes.data() + offset, sizeof(record));
    return record;
}

// Whether `bytes` have the checksum, which counts as zero where it is among them.
bool HasDigest(std::string bytes, const Digest& digest, size_t place = std::string::npos) {
    if (place != std::string::npos) bytes.replace(place, sizeof(Digest), sizeof(Digest), '\0');
    Digest actual;
    SHA256(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), actual);
    return memcmp(actual, digest, sizeof(digest)) == 0;
}

Extents SparseContent(const SharedFile& file, const Extents& whole) {
    const auto header = RecordAt<SparseHeader>(ReadBytes(whole, 0, sizeof(SparseHeader)), 0);
    if (header.major != 1 || header.block_size == 0 || header.block_size % 4 != 0 ||
        header.header_size < sizeof(SparseHeader) ||
        header.chunk_header_size < sizeof(ChunkHeader)) {
        Damaged("an Android sparse image of an unknown kind");
    }
    Extents content;
    uint64_t at = header.header_size;
    for (uint32_t i = 0; i < header.chunks; ++i) {
        const auto chunk = RecordAt<ChunkHeader>(ReadBytes(whole, at, sizeof(ChunkHeader)), 0);
        const uint64_t size = uint64_t{chunk.blocks} * header.block_size;
        const uint64_t data = at + header.chunk_header_size;
        if (chunk.size < header.chunk_header_size) Damaged("a damaged chunk in a sparse image");
        if (chunk.type == kRaw) {
            if (chunk.size - header.chunk_header_size != size) {
                Damaged("a damaged chunk in a sparse image");
            }
            Slice(whole, data, size);
            content.push_back({size, file, data, 0});
        } else if (chunk.type == kFill) {
            content.push_back({size, nullptr, 0,
                               RecordAt<uint32_t>(ReadBytes(whole, data, sizeof(uint32_t)), 0)});
        } else if (chunk.type == kDontCare) {
            content.push_back({size, nullptr, 0, 0});
        } else if (chunk.type != kChecksum) {
            Damaged("a damaged chunk in a sparse image");
        }
        at += chunk.size;
    }
    return content;
}

Geometry ReadGeometry(const Extents& super) {
    for (const uint64_t offset : kGeometryOffsets) {
        const std::string bytes = ReadBytes(super, offset, sizeof(Geometry));
        const auto geometry = RecordAt<Geometry>(bytes, 0);
        if (geometry.magic == kGeometryMagic && geometry.size == sizeof(Geometry) &&
            geometry.metadata_size <= kMostMetadata && geometry.slots != 0 &&
            HasDigest(bytes, geometry.checksum, offsetof(Geometry, checksum))) {
            return geometry;
        }
    }
    Damaged("no super partition, or one with a wrong checksum");
}

// Returns the header's and the tables' bytes, or nothing if they cannot be used.
std::string ReadMetadata(const Extents& super, uint64_t offset, uint32_t most) {
    const auto header =
            RecordAt<MetadataHeader>(ReadBytes(super, offset, sizeof(MetadataHeader)), 0);
    if (header.magic != kMetadataMagic || header.major != kMetadataMajor ||
        header.size < sizeof(MetadataHeader) || header.size > most ||
        header.tables_size > most - header.size) {
        return "";
    }
    const std::string bytes = ReadBytes(super, offset, header.size + header.tables_size);
    const bool whole = HasDigest(bytes.substr(0, header.size), header.checksum,
                                 offsetof(MetadataHeader, checksum)) &&
                       HasDigest(bytes.substr(header.size), header.tables_checksum);
    return whole ? bytes : "";
}

template <typename Record>
Record TableEntry(const std::string& metadata, const Table& table, uint64_t index) {
    const auto header = RecordAt<MetadataHeader>(metadata, 0);
    if (index >= table.count || table.entry_size < sizeof(Record))
        Damaged("a super partition whose metadata contradict each other");
    return RecordAt<Record>(metadata, header.size + table.offset + index * table.entry_size);
}

Extents PartitionContent(const Extents& super, const std::string& metadata, const Table& extents,
                         const PartitionEntry& partition) {
    Extents content;
    for (uint32_t i = 0; i < partition.extents; ++i) {
        const auto entry =
                TableEntry<ExtentEntry>(metadata, extents, uint64_t{partition.first_extent} + i);
        const uint64_t size = entry.sectors * kSectorSize;
        if (entry.type == kZero) {
            content.push_back({size, nullptr, 0, 0});
        } else if (entry.type != kLinear || entry.device != 0) {
            Damaged("a super partition of several block devices");
        } else {
            for (Extent& part : Slice(super, entry.sector * kSectorSize, size)) {
                content.push_back(std::move(part));
            }
        }
    }
    return content;
}

}  // namespace

uint64_t SizeOf(const Extents& extents) {
    uint64_t size = 0;
    for (const Extent& extent : extents) size += extent.size;
    return size;
}

Extents Slice(const Extents& extents, uint64_t offset, uint64_t size) {
    Extents slice;
    for (const Extent& extent : extents) {
        if (size == 0) break;
        if (offset >= extent.size) {
            offset -= extent.size;
            continue;
        }
        const uint64_t part = std::min(size, extent.size - offset);
        slice.push_back({part, extent.file, extent.offset + offset, extent.fill});
        offset = 0;
        size -= part;
    }
    if (size != 0) Damaged("truncated");
    return slice;
}

std::string ReadBytes(const Extents& extents, uint64_t offset, size_t size) {
    std::string bytes;
    for (const Extent& part : Slice(extents, offset, size)) {
        const size_t begin = bytes.size();
        bytes.resize(begin + part.size);
        for (size_t i = 0; part.file == nullptr && i < part.size; ++i) {
            bytes[begin + i] = reinterpret_cast<const char*>(&part.fill)[(part.offset + i) % 4];
        }
        if (part.file != nullptr &&
            !android::base::ReadFullyAtOffset(*part.file, &bytes[begin], part.size,
                                              static_cast<off64_t>(part.offset))) {
            Damaged("cannot be read");
        }
    }
    return bytes;
}

void WriteTo(const Extents& extents, const std::string& path) {
    const unique_fd out(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    Check(out.ok(), path);
    off_t at = 0;
    for (const Extent& extent : extents) {
        uint64_t left = extent.size;
        if (extent.file == nullptr && extent.fill != 0) {
            const std::string block = ReadBytes({extent}, 0, std::min<uint64_t>(left, 1 << 20));
            for (off_t to = at; left != 0;) {
                const ssize_t n =
                        pwrite(out.get(), block.data(), std::min<uint64_t>(left, block.size()), to);
                Check(n > 0, path);
                left -= n;
                to += n;
            }
        }
        off_t from = static_cast<off_t>(extent.offset);
        Check(lseek(out.get(), at, SEEK_SET) == at, path);
        while (extent.file != nullptr && left != 0) {
            const ssize_t n = sendfile(out.get(), extent.file->get(), &from,
                                       std::min<uint64_t>(left, 1 << 30));
            Check(n > 0, path);
            left -= n;
        }
        at += static_cast<off_t>(extent.size);
    }
    Check(ftruncate(out.get(), at) == 0, path);
}

Extents ContentOf(SharedFile file) {
    const off_t size = lseek(file->get(), 0, SEEK_END);  // of a block device too
    Check(size != -1, "cannot be read");
    const Extents whole = {{static_cast<uint64_t>(size), file, 0, 0}};
    const bool sparse = size >= static_cast<off_t>(sizeof(kSparseMagic)) &&
                        RecordAt<uint32_t>(ReadBytes(whole, 0, 4), 0) == kSparseMagic;
    return sparse ? SparseContent(file, whole) : whole;
}

std::vector<LogicalPartition> LogicalPartitions(const Extents& super, char slot) {
    const Geometry geometry = ReadGeometry(super);
    const uint32_t number = std::min<uint32_t>(slot - 'a', geometry.slots - 1);
    const uint64_t all = uint64_t{geometry.metadata_size} * geometry.slots;
    std::string metadata;
    for (const uint64_t offset : {kMetadataOffset, kMetadataOffset + all}) {
        if (!metadata.empty()) break;
        metadata = ReadMetadata(super, offset + uint64_t{number} * geometry.metadata_size,
                                geometry.metadata_size);
    }
    if (metadata.empty()) Damaged("a super partition whose metadata have a wrong checksum");
    const auto header = RecordAt<MetadataHeader>(metadata, 0);
    std::vector<LogicalPartition> partitions;
    for (uint32_t i = 0; i < header.partitions.count; ++i) {
        const auto entry = TableEntry<PartitionEntry>(metadata, header.partitions, i);
        partitions.push_back({std::string(entry.name, strnlen(entry.name, sizeof(entry.name))),
                              PartitionContent(super, metadata, header.extents, entry)});
    }
    return partitions;
}

}  // namespace sandbox
