#include "erofs_inode.h"

#include <sys/stat.h>

#include <algorithm>

#include "little_endian.h"

namespace images::erofs {

namespace {

constexpr uint64_t kUnit = 32;  // an inode's number is its offset divided by this
constexpr size_t kCompactSize = 32;
constexpr size_t kExtendedSize = 64;

// Bits of an inode's format field.
constexpr unsigned kExtended = 1;
constexpr unsigned kLayoutShift = 1;
constexpr unsigned kLayoutMask = 7;
constexpr unsigned kShort = 0x10;  // a directory without ".", or a compact inode with one link
constexpr unsigned kKnownFormat = 0x1F;

constexpr uint32_t kNanoseconds = 1'000'000'000;

uint64_t OffsetOf(const Head& head, const Source& space, uint64_t id) {
    const uint64_t number = id & ~kInMetabox;
    const uint64_t first = (id & kInMetabox) != 0 ? 0 : head.inodes;
    if (number > space.size() / kUnit ||
        !IsInside(first + number * kUnit, kCompactSize, space.size())) {
        Fail(id, "beyond the end of the inodes");
    }
    return first + number * kUnit;
}

bool HasData(mode_t mode) {
    return S_ISREG(mode) || S_ISDIR(mode) || S_ISLNK(mode);
}

uint64_t Start(uint32_t low, uint16_t high, bool counts_high) {
    if (!counts_high) return low == UINT32_MAX ? kHole : low;
    return low == UINT32_MAX && high == UINT16_MAX ? kHole : low | uint64_t{high} << 32;
}

}  // namespace

void Fail(uint64_t id, const std::string& what) {
    throw Damage((id & kInMetabox ? "metabox inode " : "inode ") +
                 std::to_string(id & ~kInMetabox) + ": " + what);
}

Inode ReadInode(const Head& head, const Source& space, uint64_t id) {
    const uint64_t offset = OffsetOf(head, space, id);
    const std::string bytes =
            ReadBytes(space, offset, std::min<uint64_t>(kExtendedSize, space.size() - offset));
    const unsigned format = Little16(bytes, 0);
    const bool is_extended = (format & kExtended) != 0;
    if (is_extended && bytes.size() < kExtendedSize) Fail(id, "beyond the end of the inodes");

    Inode inode = {};
    inode.id = id;
    inode.mode = Little16(bytes, 4);
    if (!HasData(inode.mode) && !S_ISCHR(inode.mode) && !S_ISBLK(inode.mode) &&
        !S_ISFIFO(inode.mode) && !S_ISSOCK(inode.mode)) {
        Fail(id, "unknown type of file");
    }
    if ((format & ~kKnownFormat) != 0) Fail(id, "unknown format");
    if (is_extended) {
        inode.user = Little32(bytes, 24);
        inode.group = Little32(bytes, 28);
        inode.seconds = static_cast<int64_t>(Little64(bytes, 32));
        inode.nanoseconds = Little32(bytes, 40);
    } else {
        inode.user = Little16(bytes, 24);
        inode.group = Little16(bytes, 26);
        inode.seconds = static_cast<int64_t>(head.seconds + uint64_t{Little32(bytes, 12)});
        inode.nanoseconds = head.nanoseconds;
    }
    // Nothing depends on times, so that a wrong one is no damage.
    if (inode.nanoseconds >= kNanoseconds) inode.nanoseconds = 0;

    const uint16_t labels = Little16(bytes, 2);
    const uint64_t labels_size = labels == 0 ? 0 : 12 + 4 * (uint64_t{labels} - 1);
    inode.end = offset + (is_extended ? kExtendedSize : kCompactSize) + labels_size;
    if (inode.end > space.size()) Fail(id, "attributes beyond the end of the inodes");
    if (!HasData(inode.mode)) return inode;

    const unsigned layout = format >> kLayoutShift & kLayoutMask;
    if (layout > static_cast<unsigned>(Layout::kChunks)) Fail(id, "unknown layout");
    inode.layout = static_cast<Layout>(layout);
    inode.size = is_extended ? Little64(bytes, 8) : Little32(bytes, 8);
    inode.start = Start(Little32(bytes, 16), Little16(bytes, 6),
                        is_extended || ((format & kShort) != 0 && !S_ISDIR(inode.mode)));
    inode.chunk_format = Little16(bytes, 16);
    return inode;
}

}  // namespace images::erofs
