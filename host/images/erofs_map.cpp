#include "erofs_map.h"

#include <string>

#include "../budget.h"
#include "little_endian.h"

namespace images::erofs {

namespace {

// Flags in a map's header.
enum Advice : unsigned {
    kTwoBytes = 1,  // with compact indexes
    kEncoded = 1,   // with others: there are encoded extents and no indexes
    kBig1 = 2,
    kBig2 = 4,
    kInline = 8,
    kInterlaced = 0x10,
    kFragment = 0x20,
};
constexpr uint64_t kAllFragment = uint64_t{1} << 63;
constexpr size_t kHeaderSize = 8;

// Full indexes.
constexpr size_t kFullGap = 8;  // between header and indexes
constexpr size_t kFullSize = 8;
constexpr unsigned kPartialIndex = 0x8000;

// Compact indexes come in packs that end with a block number.
struct Pack {
    unsigned fields;
    unsigned bits;  // of a field
    unsigned size;  // of all, in bytes
};
constexpr Pack kFourBytes = {2, 16, 8};
constexpr Pack kTwoByte = {16, 14, 32};
constexpr unsigned kLeastLowBits = 12;
constexpr unsigned kMostCompactBlockBits = 14;
constexpr unsigned kMostTwoByteBlockBits = 12;

// The index of one cluster, which is a block of the file: whether an extent starts in it.
struct Index {
    enum Type : uint8_t { kPlain, kHead1, kNotHead, kHead2 } type;
    bool is_partial;
    uint16_t low;    // a head's offset in its cluster; else a distance or a count of blocks
    uint32_t block;  // of the stored data
};
constexpr unsigned kCount = 0x800;  // marks a count of blocks

// Encoded extents.
constexpr uint32_t kLengthMask = 0x1FFFFF;
constexpr uint32_t kPartialExtent = 1U << 27;
constexpr unsigned kCodingShift = 28;

uint64_t Up(uint64_t number, uint64_t unit) {
    return (number + unit - 1) / unit * unit;
}

class MapReader {
  public:
    MapReader(const Head& head, const Inode& inode, const Source& space)
            : head_(head), inode_(inode), space_(space) {}

    std::vector<Extent> Read() {
        const uint64_t place = Up(inode_.end, 8);
        header_ = Bytes(place, kHeaderSize);
        table_ = place + kHeaderSize;
        if ((Little64(header_, 0) & kAllFragment) != 0) {
            return {Fragment(0, Little64(header_, 0) & ~kAllFragment)};
        }
        advice_ = Little16(header_, 4);
        if (inode_.layout == Layout::kCompressed && (advice_ & kEncoded) != 0) {
            return ReadEncoded();
        }
        if ((ClusterBits() != head_.block_bits)) Fail("clusters of several blocks");
        const uint64_t count = CountClusters();
        return Extents(inode_.layout == Layout::kCompressed ? ReadFull(count) : ReadCompact(count));
    }

  private:
    [[noreturn]] void Fail(const std::string& what) const { erofs::Fail(inode_.id, what); }

    std::string Bytes(uint64_t place, uint64_t size) const {
        if (!IsInside(place, size, space_.size())) Fail("a map that ends after its data");
        return ReadBytes(space_, place, size);
    }

    unsigned ClusterBits() const {
        return head_.block_bits + (static_cast<uint8_t>(header_[7]) & 15U);
    }

    uint64_t CountClusters() const {
        const uint64_t count = ((inode_.size - 1) >> ClusterBits()) + 1;
        CheckCount(count);
        return count;
    }

    void CheckCount(uint64_t count) const {
        if (count > limits::kErofsClusters) {
            Fail(std::to_string(count) + " clusters; the limit is " +
                 std::to_string(limits::kErofsClusters));
        }
    }

    static Extent Fragment(uint64_t start, uint64_t place) {
        return {start, place, 0, Coding::kFragment, {}, false, false};
    }

    // Checks that the superblock declares the algorithm with this number, and returns it.
    Algorithm Known(unsigned algorithm) const {
        if (algorithm >= kAlgorithms || (head_.algorithms >> algorithm & 1) == 0) {
            Fail("an algorithm that the superblock does not name");
        }
        return static_cast<Algorithm>(algorithm);
    }

    std::vector<Index> ReadFull(uint64_t count) {
        const std::string bytes = Bytes(table_ + kFullGap, count * kFullSize);
        table_end_ = table_ + kFullGap + bytes.size();
        std::vector<Index> indexes;
        indexes.reserve(count);
        for (size_t at = 0; at < bytes.size(); at += kFullSize) {
            const uint16_t format = Little16(bytes, at);
            const auto type = static_cast<Index::Type>(format & 3);
            indexes.push_back({type, (format & kPartialIndex) != 0,
                               Little16(bytes, at + (type == Index::kNotHead ? 4 : 2)),
                               Little32(bytes, at + 4)});
        }
        return indexes;
    }

    // Indexes of two bytes start where a pack of them is aligned. Those of four bytes come before,
    // and after, for the rest that fills no such pack.
    std::vector<Index> ReadCompact(uint64_t count) {
        if (head_.block_bits > kMostCompactBlockBits)
            Fail("compact indexes with blocks of this size");
        if (const unsigned big = advice_ & (kBig1 | kBig2); big == kBig1 || big == kBig2) {
            Fail("big clusters of one kind only");
        }
        uint64_t first = count, second = 0;
        const uint64_t aligned = (32 - table_ % 32) / 4 % 8;
        if ((advice_ & kTwoBytes) != 0 && aligned < count) {
            first = aligned;
            second = (count - aligned) / kTwoByte.fields * kTwoByte.fields;
        }
        if (second != 0 && head_.block_bits > kMostTwoByteBlockBits) {
            Fail("indexes of two bytes with blocks of this size");
        }
        std::vector<Index> indexes;
        indexes.reserve(Up(count, 2));
        table_end_ = table_;
        ReadPacks(kFourBytes, first, &indexes);
        ReadPacks(kTwoByte, second, &indexes);
        ReadPacks(kFourBytes, count - first - second, &indexes);
        indexes.resize(count);
        return indexes;
    }

    void ReadPacks(const Pack& pack, uint64_t count, std::vector<Index>* indexes) {
        const std::string bytes =
                Bytes(table_end_, Up(count, pack.fields) / pack.fields * pack.size);
        table_end_ += bytes.size();
        for (size_t at = 0; at < bytes.size(); at += pack.size) {
            ReadPack(pack, std::string_view(bytes).substr(at, pack.size), indexes);
        }
    }

    void ReadPack(const Pack& pack, std::string_view bytes, std::vector<Index>* indexes) {
        const unsigned low_bits = std::max(head_.block_bits, kLeastLowBits);
        const bool is_big = (advice_ & kBig1) != 0;
        // Block numbers increase from head to head. They may wrap: those of tails are not used.
        uint32_t block = Little32(bytes, pack.size - sizeof(uint32_t));
        bool is_open = !is_big;
        for (unsigned i = 0; i < pack.fields; ++i) {
            const unsigned bit = i * pack.bits;
            const uint32_t field = Little32(bytes, bit / 8) >> bit % 8;
            Index index = {static_cast<Index::Type>(field >> low_bits & 3), false,
                           static_cast<uint16_t>(field & ((1U << low_bits) - 1)), 0};
            if (index.type != Index::kNotHead) {
                block += is_open ? 1 : 0;
                is_open = true;
                index.block = block;
            } else if (is_big && (index.low & kCount) != 0) {
                block += index.low & ~kCount;
                is_open = false;
            }
            indexes->push_back(index);
        }
    }

    uint64_t Start(const std::vector<Index>& indexes, size_t i) const {
        return (uint64_t{i} << head_.block_bits) + indexes[i].low;
    }

    // A head at or after the end of the file only marks that end.
    bool IsHead(const std::vector<Index>& indexes, size_t i) const {
        return indexes[i].type != Index::kNotHead && Start(indexes, i) < inode_.size;
    }

    std::vector<Extent> Extents(const std::vector<Index>& indexes) const {
        size_t tail = indexes.size();
        const uint16_t inline_size = (advice_ & kInline) != 0 ? Little16(header_, 2) : 0;
        if ((advice_ & kFragment) != 0 || inline_size != 0) {
            do {
                if (tail == 0) Fail("no extents");
            } while (!IsHead(indexes, --tail));
        }
        std::vector<Extent> extents;
        for (size_t i = 0; i < indexes.size(); ++i) {
            const Index& index = indexes[i];
            if (index.type == Index::kNotHead) {
                if ((index.low & kCount) != 0 && (advice_ & (kBig1 | kBig2)) == 0) {
                    Fail("a count of blocks where none is allowed");
                }
                continue;
            }
            if (index.low >= head_.block_size()) Fail("an extent starts outside its cluster");
            if (!IsHead(indexes, i)) continue;
            if (extents.empty() && Start(indexes, i) != 0) Fail("no extent starts at 0");
            if (i != tail) {
                extents.push_back(Stored(indexes, i));
            } else if ((advice_ & kFragment) != 0) {
                const uint64_t high =
                        inode_.layout == Layout::kCompressed ? uint64_t{index.block} << 32 : 0;
                extents.push_back(Fragment(Start(indexes, i), Little32(header_, 0) | high));
            } else {
                extents.push_back(Inline(indexes, i, inline_size));
            }
        }
        if (extents.empty()) Fail("no extents");
        return extents;
    }

    Extent Stored(const std::vector<Index>& indexes, size_t i) const {
        const Index& index = indexes[i];
        Extent extent = Coded(indexes, i);
        extent.place = uint64_t{index.block} << head_.block_bits;
        uint64_t blocks = 1;
        const bool is_big = (advice_ & (index.type == Index::kHead1 ? kBig1 : kBig2)) != 0;
        if (is_big && i + 1 < indexes.size() && indexes[i + 1].type == Index::kNotHead) {
            if ((indexes[i + 1].low & kCount) == 0) Fail("no count of an extent's blocks");
            blocks = indexes[i + 1].low & ~kCount;
        }
        const uint64_t size = blocks << head_.block_bits;
        if (size == 0 || size > limits::kErofsCompressed) Fail("wrong count of an extent's blocks");
        extent.size = static_cast<uint32_t>(size);
        return extent;
    }

    // The inline extent follows the indexes and must end in their block.
    Extent Inline(const std::vector<Index>& indexes, size_t i, uint16_t size) const {
        if (table_end_ % head_.block_size() + size > head_.block_size()) {
            Fail("inline data that cross the end of a block");
        }
        Extent extent = Coded(indexes, i);
        extent.place = table_end_;
        extent.size = size;
        extent.is_inline = true;
        return extent;
    }

    Extent Coded(const std::vector<Index>& indexes, size_t i) const {
        const Index& index = indexes[i];
        Extent extent = {Start(indexes, i), 0, 0, Coding::kCompressed, {}, index.is_partial, false};
        if (index.type == Index::kPlain) {
            extent.coding = (advice_ & kInterlaced) != 0 ? Coding::kInterlaced : Coding::kPlain;
        } else {
            const auto algorithms = static_cast<uint8_t>(header_[6]);
            extent.algorithm =
                    Known(index.type == Index::kHead1 ? algorithms & 15 : algorithms >> 4);
        }
        return extent;
    }

    std::vector<Extent> ReadEncoded() const {
        const size_t record = size_t{4} << (advice_ >> 1 & 3);
        const bool is_regular = record < 16;  // each extent is of one cluster
        const uint64_t count = is_regular ? CountClusters()
                                          : Little32(header_, 0) | uint64_t{Little16(header_, 6)}
                                                                           << 32;
        CheckCount(count);
        uint64_t table = Up(table_, record);
        uint64_t place = 0;
        if (record == 4) {
            place = Little64(Bytes(table, sizeof place), 0);
            table += sizeof place;
        }
        const std::string bytes = Bytes(table, count * record);
        std::vector<Extent> extents;
        extents.reserve(count + 1);
        for (uint64_t i = 0; i < count; ++i) {
            const auto fields = std::string_view(bytes).substr(i * record, record);
            const uint32_t length = Little32(fields, 0);
            uint64_t start = i << ClusterBits();
            if (record >= 8) place = Little32(fields, 4);
            if (record >= 16) {
                place |= uint64_t{Little32(fields, 8)} << 32;
                start = Little32(fields, 12);
                if (record == 32) start |= uint64_t{Little32(fields, 16)} << 32;
                if (start >= inode_.size || (!extents.empty() && start <= extents.back().start)) {
                    Fail("extents out of order");
                }
                if (i == 0 && start != 0) extents.push_back(Zeros(0));
            }
            if (i + 1 == count && (advice_ & kFragment) != 0) {
                if (record >= 8 && place > UINT32_MAX) Fail("a fragment beyond the packed inode");
                extents.push_back(Fragment(start, length | (record >= 8 ? place << 32 : 0)));
            } else {
                extents.push_back(Decoded(start, place, length));
            }
            if (record == 4 && __builtin_add_overflow(place, length & kLengthMask, &place)) {
                Fail("data beyond the end of the image");
            }
        }
        if (extents.empty()) extents.push_back(Zeros(0));
        return extents;
    }

    static Extent Zeros(uint64_t start) { return {start, 0, 0, Coding::kZeros, {}, false, false}; }

    Extent Decoded(uint64_t start, uint64_t place, uint32_t length) const {
        const uint32_t size = length & kLengthMask;
        if (size == 0) return Zeros(start);
        Extent extent = {start, place, size, Coding::kCompressed, {}, false, false};
        extent.is_partial = (length & kPartialExtent) != 0;
        if (const unsigned coding = length >> kCodingShift; coding != 0) {
            extent.algorithm = Known(coding - 1);
        } else if ((advice_ & kInterlaced) != 0 && place % head_.block_size() == 0 &&
                   size % head_.block_size() == 0) {
            extent.coding = Coding::kInterlaced;
        } else {
            extent.coding = Coding::kPlain;
        }
        return extent;
    }

    const Head& head_;
    const Inode& inode_;
    const Source& space_;
    std::string header_;
    unsigned advice_ = 0;
    uint64_t table_ = 0;      // after the header
    uint64_t table_end_ = 0;  // after the indexes
};

}  // namespace

std::vector<Extent> ReadMap(const Head& head, const Inode& inode, const Source& space) {
    return MapReader(head, inode, space).Read();
}

}  // namespace images::erofs
