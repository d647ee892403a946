#include "super.h"

#include <openssl/sha.h>
#include <stddef.h>
#include <string.h>

#include <algorithm>

#include "../budget.h"
#include "sources.h"

namespace images {

namespace {

constexpr uint32_t kGeometryMagic = 0x616c4467;
constexpr uint32_t kMetadataMagic = 0x414c5030;
constexpr uint16_t kMetadataMajor = 10;
constexpr uint64_t kSectorSize = 512;

// The start of a super partition: a reserved block, the geometry and its copy, the metadata.
constexpr uint64_t kGeometryOffsets[] = {4096, 8192};
constexpr uint64_t kMetadataOffset = 12288;

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

enum ExtentType : uint32_t { kLinear = 0, kZeroed = 1 };

template <typename Record>
Record RecordAt(const std::string& bytes, uint64_t offset) {
    if (offset > bytes.size() || bytes.size() - offset < sizeof(Record)) {
        throw Damage("a super partition whose metadata are cut off");
    }
    Record record;
    memcpy(&record, bytes.data() + offset, sizeof(record));
    return record;
}

// Returns whether `bytes` have the checksum. If they include it, at `place`, it counts as zeros.
bool HasDigest(std::string bytes, const Digest& digest, size_t place = std::string::npos) {
    if (place != std::string::npos) bytes.replace(place, sizeof(Digest), sizeof(Digest), '\0');
    Digest actual;
    SHA256(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), actual);
    return memcmp(actual, digest, sizeof(digest)) == 0;
}

// Returns the geometry; its magic number is 0 if the source is no super partition.
Geometry ReadGeometry(const Source& source) {
    bool is_super = false;
    for (const uint64_t offset : kGeometryOffsets) {
        if (source.size() < offset + sizeof(Geometry)) break;
        const std::string bytes = ReadBytes(source, offset, sizeof(Geometry));
        const auto geometry = RecordAt<Geometry>(bytes, 0);
        if (geometry.magic != kGeometryMagic) continue;
        is_super = true;
        if (geometry.size == sizeof(Geometry) && geometry.slots != 0 &&
            HasDigest(bytes, geometry.checksum, offsetof(Geometry, checksum))) {
            return geometry;
        }
    }
    if (is_super) throw Damage("a super partition with a wrong checksum");
    return {};
}

// Returns the bytes of the header and the tables, or nothing if they are damaged.
std::string ReadMetadata(const Source& source, uint64_t offset, uint32_t most) {
    const auto header =
            RecordAt<MetadataHeader>(ReadBytes(source, offset, sizeof(MetadataHeader)), 0);
    if (header.magic != kMetadataMagic || header.major != kMetadataMajor ||
        header.size < sizeof(MetadataHeader) || header.size > most ||
        header.tables_size > most - header.size) {
        return "";
    }
    std::string bytes = ReadBytes(source, offset, header.size + header.tables_size);
    const bool is_whole = HasDigest(bytes.substr(0, header.size), header.checksum,
                                    offsetof(MetadataHeader, checksum)) &&
                          HasDigest(bytes.substr(header.size), header.tables_checksum);
    return is_whole ? bytes : "";
}

template <typename Record>
Record TableEntry(const std::string& metadata, Table MetadataHeader::*member, uint64_t index) {
    const auto header = RecordAt<MetadataHeader>(metadata, 0);
    const Table table = header.*member;
    if (index >= table.count || table.entry_size < sizeof(Record)) {
        throw Damage("a super partition whose metadata contradict each other");
    }
    return RecordAt<Record>(metadata,
                            uint64_t{header.size} + table.offset + index * table.entry_size);
}

uint64_t SizeOf(const ExtentEntry& entry) {
    if (entry.sectors > INT64_MAX / kSectorSize || entry.sector > INT64_MAX / kSectorSize) {
        throw Damage("a super partition with an extent larger than any file");
    }
    return entry.sectors * kSectorSize;
}

}  // namespace

std::unique_ptr<Super> Super::Open(const Source& source, char slot) {
    const Geometry geometry = ReadGeometry(source);
    if (geometry.magic != kGeometryMagic) return nullptr;
    if (geometry.metadata_size > limits::kSuperMetadata) {
        throw Damage("a super partition with more than " + std::to_string(limits::kSuperMetadata) +
                     " bytes of metadata");
    }
    const uint32_t number = std::min<uint32_t>(slot - 'a', geometry.slots - 1);
    const uint64_t all = uint64_t{geometry.metadata_size} * geometry.slots;
    for (const uint64_t offset : {kMetadataOffset, kMetadataOffset + all}) {
        std::string metadata = ReadMetadata(
                source, offset + uint64_t{number} * geometry.metadata_size, geometry.metadata_size);
        if (!metadata.empty()) {
            return std::unique_ptr<Super>(new Super(source, std::move(metadata)));
        }
    }
    throw Damage("a super partition whose metadata have a wrong checksum");
}

Super::Super(const Source& source, std::string metadata)
        : source_(source), metadata_(std::move(metadata)) {
    const auto header = RecordAt<MetadataHeader>(metadata_, 0);
    if (header.partitions.count > limits::kSuperPartitions) {
        throw Damage("a super partition of more than " + std::to_string(limits::kSuperPartitions) +
                     " partitions");
    }
    uint64_t extents = 0;
    for (uint32_t i = 0; i < header.partitions.count; ++i) {
        const auto entry = TableEntry<PartitionEntry>(metadata_, &MetadataHeader::partitions, i);
        extents += entry.extents;
        if (extents > limits::kSuperExtents) {
            throw Damage("a super partition of more than " + std::to_string(limits::kSuperExtents) +
                         " extents");
        }
        uint64_t size = 0;
        for (uint32_t j = 0; j < entry.extents; ++j) {
            const auto extent = TableEntry<ExtentEntry>(metadata_, &MetadataHeader::extents,
                                                        uint64_t{entry.first_extent} + j);
            if (SizeOf(extent) > INT64_MAX - size) {
                throw Damage("a super partition with a partition larger than any file");
            }
            size += SizeOf(extent);
        }
        volumes_.push_back(
                {std::string(entry.name, strnlen(entry.name, sizeof(entry.name))), size});
        extents_.push_back({entry.first_extent, entry.extents});
    }
}

std::unique_ptr<Source> Super::OpenVolume(size_t index) const {
    auto content = std::make_unique<ExtentSource>(source_);
    const auto [first, count] = extents_.at(index);
    for (uint32_t i = 0; i < count; ++i) {
        const auto entry = TableEntry<ExtentEntry>(metadata_, &MetadataHeader::extents, first + i);
        if (entry.type == kZeroed) {
            content->AddFill(SizeOf(entry), 0);
        } else if (entry.type != kLinear || entry.device != 0) {
            throw Damage("a super partition of several block devices");
        } else {
            content->AddPart(SizeOf(entry), entry.sector * kSectorSize);
        }
    }
    return content;
}

}  // namespace images
