#include "erofs_head.h"

#include <iterator>
#include <string>

#include "little_endian.h"

namespace images::erofs {

namespace {

constexpr uint64_t kPlace = 1024;
constexpr uint64_t kSize = 128;
constexpr uint64_t kSizeWithMetabox = 136;
constexpr uint32_t kMagic = 0xE0F5E1E2;
constexpr uint32_t kHasChecksum = 1;  // a compatible feature
constexpr size_t kChecksum = 4;

// Features that a reader must support.
enum Feature : uint32_t {
    kPadding = 1,
    kAlgorithmRecords = 2,
    kDevices = 8,
    k48Bit = 0x80,
    kMetabox = 0x100,
    kKnown = 0x1FF,
};

struct Record {
    const char* algorithm;
    size_t size;
};
constexpr Record kRecords[] = {{"lz4", 14}, {"MicroLZMA", 14}, {"deflate", 6}, {"zstd", 6}};
static_assert(std::size(kRecords) == kAlgorithms);
constexpr uint32_t kLeastDictionary = 4096;
constexpr uint32_t kMostDictionary = 8 << 20;
constexpr unsigned kMostDeflateBits = 15;
constexpr unsigned kMostZstdBits = 10;  // added to those of the least window, 1 KiB

void Require(bool condition, const std::string& what) {
    if (!condition) throw Damage("EROFS superblock: " + what);
}

std::string ReadInside(const Source& source, uint64_t offset, uint64_t size, const char* what) {
    Require(IsInside(offset, size, source.size()), std::string(what) + " ends after the image");
    return ReadBytes(source, offset, size);
}

// CRC-32C without the final inversion.
uint32_t Checksum(std::string_view bytes) {
    uint32_t sum = 0xFFFFFFFF;
    for (const char byte : bytes) {
        sum ^= static_cast<uint8_t>(byte);
        for (int bit = 0; bit < 8; ++bit) sum = sum >> 1 ^ (sum & 1 ? 0x82F63B78 : 0);
    }
    return sum;
}

void CheckChecksum(const Source& source, uint64_t block_size, uint32_t expected) {
    const uint64_t size = block_size > kPlace ? block_size - kPlace : block_size;
    std::string bytes = ReadInside(source, kPlace, size, "the data of its checksum");
    bytes.replace(kChecksum, sizeof(uint32_t), sizeof(uint32_t), '\0');
    Require(Checksum(bytes) == expected, "wrong checksum");
}

// Reads the settings of the algorithms from the records after the superblock.
void ReadRecords(const Source& source, uint64_t place, Head* head) {
    for (unsigned algorithm = 0; algorithm < kAlgorithms; ++algorithm) {
        if ((head->algorithms >> algorithm & 1) == 0) continue;
        const std::string name = kRecords[algorithm].algorithm;
        place = (place + 3) / 4 * 4;
        const uint16_t size = Little16(ReadInside(source, place, 2, "an algorithm's record"), 0);
        Require(size >= kRecords[algorithm].size, "short record of " + name);
        const std::string record = ReadInside(source, place + 2, size, "an algorithm's record");
        place += 2 + size;
        switch (algorithm) {
            case kMicroLzma:
                head->lzma_dictionary = Little32(record, 0);
                Require(head->lzma_dictionary >= kLeastDictionary &&
                                head->lzma_dictionary <= kMostDictionary,
                        "unsupported dictionary size of " + name);
                Require(Little16(record, 4) == 0, "unsupported format of " + name);
                break;
            case kDeflate:
                Require(static_cast<uint8_t>(record[0]) <= kMostDeflateBits,
                        "unsupported window of " + name);
                break;
            case kZstd:
                Require(record[0] == 0, "unsupported format of " + name);
                Require(static_cast<uint8_t>(record[1]) <= kMostZstdBits,
                        "unsupported window of " + name);
                break;
            default:
                break;
        }
    }
}

}  // namespace

std::optional<Head> ReadHead(const Source& source) {
    if (!IsInside(kPlace, sizeof kMagic, source.size())) return std::nullopt;
    if (Little32(ReadBytes(source, kPlace, sizeof kMagic), 0) != kMagic) return std::nullopt;

    std::string bytes = ReadInside(source, kPlace, kSize, "it");
    const uint64_t size = kSize + 16 * static_cast<uint8_t>(bytes[13]);
    bytes = ReadInside(source, kPlace, size, "it");

    Head head = {};
    head.block_bits = static_cast<uint8_t>(bytes[12]);
    Require(head.block_bits >= 9 && head.block_bits <= 16, "unsupported block size");
    if ((Little32(bytes, 8) & kHasChecksum) != 0) {
        CheckChecksum(source, head.block_size(), Little32(bytes, kChecksum));
    }
    const uint32_t features = Little32(bytes, 80);
    Require((features & ~kKnown) == 0, "unknown features " + std::to_string(features & ~kKnown));
    Require((features & kDevices) == 0 || Little16(bytes, 86) == 0, "data on other devices");
    Require(bytes[90] == 0, "unsupported size of directory blocks");

    head.inodes = uint64_t{Little32(bytes, 40)} << head.block_bits;
    head.seconds = static_cast<int64_t>(Little64(bytes, 24));
    head.nanoseconds = Little32(bytes, 32);
    const uint64_t root = (features & k48Bit) != 0 ? Little64(bytes, 112) : 0;
    head.root = root != 0 ? root : Little16(bytes, 14);
    head.packed = Little64(bytes, 96);
    Require((head.packed & kInMetabox) == 0, "wrong number of the packed inode");
    if ((features & kMetabox) != 0) {
        Require(size >= kSizeWithMetabox, "no number of the metabox inode");
        head.metabox = Little64(bytes, 128);
        Require(head.metabox != 0 && (head.metabox & kInMetabox) == 0,
                "wrong number of the metabox inode");
    }

    head.is_padded = (features & kPadding) != 0;
    head.lzma_dictionary = kMostDictionary;
    head.algorithms = 1U << kLz4;
    if ((features & kAlgorithmRecords) != 0) {
        head.algorithms = Little16(bytes, 84);
        Require(head.algorithms >> kAlgorithms == 0, "unknown compression");
        ReadRecords(source, kPlace + size, &head);
    }
    return head;
}

}  // namespace images::erofs
