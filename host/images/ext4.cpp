// ext4 by way of libext2fs, which reads blocks of the source and nothing else on this machine.
// Values that libext2fs trusts are checked before each call, and its results after it.

#include <ext2fs/ext2fs.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <exception>
#include <string_view>

#include "../budget.h"
#include "file_system.h"

namespace images {

namespace {

constexpr uint64_t kSuperOffset = 1024;

// Without attribute values in inodes of their own: no file content depends on those.
constexpr uint32_t kKnownFeatures =
        (EXT2_LIB_FEATURE_INCOMPAT_SUPP | EXT4_FEATURE_INCOMPAT_MMP) &
        ~(EXT4_FEATURE_INCOMPAT_EA_INODE | EXT3_FEATURE_INCOMPAT_JOURNAL_DEV);

constexpr uint64_t kLongestTarget = 4095;

// The channel through which libext2fs reads the source.
struct Channel : struct_io_channel {
    const Source* source;
    std::exception_ptr error;  // why the last read failed

    static errcode_t Open(const char* name, int flags, io_channel* channel);
    static errcode_t Close(io_channel channel);
    static errcode_t SetBlockSize(io_channel channel, int size);
    static errcode_t ReadBlocks(io_channel channel, unsigned long long block, int count,
                                void* data);
    static errcode_t ReadBlocks32(io_channel channel, unsigned long block, int count, void* data) {
        return ReadBlocks(channel, block, count, data);
    }
    static errcode_t Write(io_channel, unsigned long, int, const void*) {
        return EXT2_ET_RO_FILSYS;
    }
    static errcode_t Flush(io_channel) { return 0; }
};

struct_io_manager Manager() {
    struct_io_manager manager = {};
    manager.magic = EXT2_ET_MAGIC_IO_MANAGER;
    manager.name = "source";
    manager.open = Channel::Open;
    manager.close = Channel::Close;
    manager.set_blksize = Channel::SetBlockSize;
    manager.read_blk = Channel::ReadBlocks32;
    manager.read_blk64 = Channel::ReadBlocks;
    manager.write_blk = Channel::Write;
    manager.flush = Channel::Flush;
    return manager;
}

struct_io_manager g_manager = Manager();

// The source for Channel::Open, which the library gives nothing but a name.
thread_local const Source* t_opened = nullptr;

errcode_t Channel::Open(const char*, int, io_channel* channel) {
    auto* opened = new Channel();
    opened->magic = EXT2_ET_MAGIC_IO_CHANNEL;
    opened->manager = &g_manager;
    opened->block_size = kSuperOffset;
    opened->refcount = 1;
    opened->source = t_opened;
    *channel = opened;
    return 0;
}

errcode_t Channel::Close(io_channel channel) {
    if (--channel->refcount == 0) delete static_cast<Channel*>(channel);
    return 0;
}

errcode_t Channel::SetBlockSize(io_channel channel, int size) {
    channel->block_size = size;
    return 0;
}

// A positive `count` is one of blocks, a negative one is one of bytes.
errcode_t Channel::ReadBlocks(io_channel channel, unsigned long long block, int count, void* data) {
    auto* self = static_cast<Channel*>(channel);
    const uint64_t block_size = self->block_size;
    const size_t size = count < 0 ? -static_cast<int64_t>(count) : count * block_size;
    try {
        if (block > INT64_MAX / block_size) throw Damage("a block after the end");
        self->source->Read(block * block_size, data, size);
    } catch (...) {
        self->error = std::current_exception();
        return EXT2_ET_SHORT_READ;
    }
    return 0;
}

std::string In(uint64_t node) {
    return "inode " + std::to_string(node) + ": ";
}

[[noreturn]] void FailIn(uint64_t node, const std::string& what) {
    throw Damage(In(node) + what);
}

class Ext4 : public FileSystem {
  public:
    explicit Ext4(const Source& source);
    ~Ext4() override { ext2fs_free(fs_); }
    Ext4& operator=(Ext4&&) = delete;

    uint64_t root() const override { return EXT2_ROOT_INO; }
    Node Look(uint64_t node) const override;
    std::vector<Name> List(uint64_t directory) const override;
    std::string Read(uint64_t file, uint64_t offset, size_t size) const override;
    std::string Target(uint64_t link) const override;

  private:
    struct Inode {
        uint64_t number;
        ext2_inode_large raw;

        // The inode as the library takes it: not const.
        ext2_inode* plain() const {
            return reinterpret_cast<ext2_inode*>(const_cast<ext2_inode_large*>(&raw));
        }
        uint64_t size() const { return EXT2_I_SIZE(&raw); }
    };

    void Check(errcode_t error, const std::string& where) const;
    Inode ReadInode(uint64_t node) const;
    Inode ReadInode(uint64_t node, mode_t type, const char* what) const;
    std::string InlineContent(const Inode& inode) const;
    uint64_t BlockOf(const Inode& inode, uint64_t block) const;
    void ReadBytesOf(const Inode& inode, uint64_t offset, char* to, size_t size) const;
    std::string Content(const Inode& inode, uint64_t offset, size_t size) const;
    void AddNames(const Inode& directory, std::string_view entries, bool is_start,
                  std::vector<Name>* names) const;

    ext2_filsys fs_ = nullptr;
    mutable std::string map_buffer_;
};

// Checks the values that libext2fs divides by, or allocates by, without a check.
void CheckHead(const ext2_super_block& super, uint64_t size) {
    const auto fail = [](const std::string& what) { throw Damage("the superblock: " + what); };
    if (super.s_log_block_size > EXT2_MAX_BLOCK_LOG_SIZE - EXT2_MIN_BLOCK_LOG_SIZE) {
        fail("blocks of an unknown size");
    }
    const uint32_t unknown = super.s_feature_incompat & ~kKnownFeatures;
    if (unknown != 0) {
        char bits[16];
        snprintf(bits, sizeof(bits), "%#x", unknown);
        fail(std::string("features that are not known here, ") + bits);
    }
    const bool is_64bit = (super.s_feature_incompat & EXT4_FEATURE_INCOMPAT_64BIT) != 0;
    const uint64_t blocks =
            super.s_blocks_count | (is_64bit ? uint64_t{super.s_blocks_count_hi} << 32 : 0);
    const int shift = EXT2_MIN_BLOCK_LOG_SIZE + static_cast<int>(super.s_log_block_size);
    if (blocks > uint64_t{INT64_MAX} >> shift) fail("more blocks than any file has");
    if (size < blocks << shift) {
        throw Damage("truncated, " + std::to_string(size) + " bytes of " +
                     std::to_string(blocks << shift));
    }
    if (super.s_blocks_per_group == 0 || blocks / super.s_blocks_per_group >= limits::kExt4Groups) {
        fail("more than " + std::to_string(limits::kExt4Groups) + " groups of blocks");
    }
    const unsigned descriptor = super.s_desc_size;
    if (is_64bit && (descriptor < EXT2_MIN_DESC_SIZE_64BIT || descriptor > EXT2_MAX_DESC_SIZE ||
                     (descriptor & (descriptor - 1)) != 0)) {
        fail("group descriptors of an unknown size");
    }
}

Ext4::Ext4(const Source& source) {
    // An image that was not unmounted is read as other read-only tools do: without the changes in
    // its journal.
    constexpr int kFlags = EXT2_FLAG_64BITS | EXT2_FLAG_SKIP_MMP;
    initialize_ext2_error_table();
    t_opened = &source;
    const errcode_t error = ext2fs_open2("image", nullptr, kFlags, 0, 0, &g_manager, &fs_);
    if (error != 0) throw Damage(std::string("the superblock: ") + error_message(error));
    map_buffer_.resize(2 * size_t{fs_->blocksize});
}

void Ext4::Check(errcode_t error, const std::string& where) const {
    if (error == 0) return;
    const auto* channel = static_cast<const Channel*>(fs_->io);
    if (error != EXT2_ET_SHORT_READ || channel->error == nullptr) {
        throw Damage(where + error_message(error));
    }
    try {
        std::rethrow_exception(channel->error);
    } catch (const Damage& damage) {
        throw Damage(where + damage.what());
    }
}

Ext4::Inode Ext4::ReadInode(uint64_t node) const {
    if (node == 0 || node > fs_->super->s_inodes_count) FailIn(node, "there is no such inode");
    const auto number = static_cast<ext2_ino_t>(node);
    if (!ext2fs_group_desc_csum_verify(fs_, ext2fs_group_of_ino(fs_, number))) {
        FailIn(node, "its group's descriptor has a wrong checksum");
    }
    Inode inode = {node, {}};
    Check(ext2fs_read_inode_full(fs_, number, inode.plain(), sizeof(inode.raw)), In(node));
    if (inode.raw.i_links_count == 0) FailIn(node, "deleted");
    return inode;
}

Ext4::Inode Ext4::ReadInode(uint64_t node, mode_t type, const char* what) const {
    Inode inode = ReadInode(node);
    if ((inode.raw.i_mode & S_IFMT) != type) FailIn(node, std::string("not a ") + what);
    if ((inode.raw.i_flags & EXT4_ENCRYPT_FL) != 0) FailIn(node, "encrypted");
    return inode;
}

std::string Ext4::InlineContent(const Inode& inode) const {
    const auto number = static_cast<ext2_ino_t>(inode.number);
    size_t size = 0;
    Check(ext2fs_inline_data_size(fs_, number, &size), In(inode.number));
    if (size > fs_->blocksize) FailIn(inode.number, "more inline data than an inode can have");
    std::string data(size, '\0');
    Check(ext2fs_inline_data_get(fs_, number, inode.plain(), data.data(), &size), In(inode.number));
    if (size != data.size() || size < inode.size()) FailIn(inode.number, "truncated");
    data.resize(inode.size());
    return data;
}

// Returns the place of a block of the content, or 0 if it is a hole.
uint64_t Ext4::BlockOf(const Inode& inode, uint64_t block) const {
    if (block > UINT32_MAX) FailIn(inode.number, "larger than any file");
    int flags = 0;
    blk64_t place = 0;
    Check(ext2fs_bmap2(fs_, static_cast<ext2_ino_t>(inode.number), inode.plain(),
                       map_buffer_.data(), 0, block, &flags, &place),
          In(inode.number));
    if ((flags & BMAP_RET_UNINIT) != 0) return 0;
    if (place != 0 &&
        (place < fs_->super->s_first_data_block || place >= ext2fs_blocks_count(fs_->super))) {
        FailIn(inode.number, "a block outside the image");
    }
    return place;
}

void Ext4::ReadBytesOf(const Inode& inode, uint64_t offset, char* to, size_t size) const try {
    static_cast<const Channel*>(fs_->io)->source->Read(offset, to, size);
} catch (const Damage& damage) {
    FailIn(inode.number, damage.what());
}

// Returns bytes of the content. The caller makes sure that they lie inside it.
std::string Ext4::Content(const Inode& inode, uint64_t offset, size_t size) const {
    if ((inode.raw.i_flags & EXT4_INLINE_DATA_FL) != 0) {
        return InlineContent(inode).substr(offset, size);
    }
    if ((inode.raw.i_flags & EXT4_EXTENTS_FL) != 0) {
        // Each level of the tree takes a block of memory, and each look-up visits all levels.
        constexpr uint16_t kDeepest = 5;
        ext3_extent_header header;
        memcpy(&header, inode.raw.i_block, sizeof(header));
        if (header.eh_depth > kDeepest) FailIn(inode.number, "a tree of extents that is too deep");
    }
    const uint64_t block_size = fs_->blocksize;
    std::string content(size, '\0');
    for (size_t done = 0; done < size;) {
        const uint64_t first = (offset + done) / block_size;
        const uint64_t inside = (offset + done) % block_size;
        const uint64_t place = BlockOf(inode, first);
        // Consecutive blocks are read at once.
        uint64_t end = block_size;
        for (uint64_t i = 1; inside + (size - done) > end; ++i, end += block_size) {
            if (BlockOf(inode, first + i) != (place == 0 ? 0 : place + i)) break;
        }
        const size_t part = std::min<uint64_t>(end - inside, size - done);
        if (place != 0) ReadBytesOf(inode, place * block_size + inside, &content[done], part);
        done += part;
    }
    return content;
}

Node Ext4::Look(uint64_t number) const {
    const Inode inode = ReadInode(number);
    const ext2_inode_large& raw = inode.raw;
    Node node;
    node.id = number;
    node.mode = raw.i_mode;
    node.user = inode_uid(raw);
    node.group = inode_gid(raw);
    node.size = inode.size();
    node.seconds = static_cast<int32_t>(raw.i_mtime);
    constexpr size_t kEndOfTime = offsetof(ext2_inode_large, i_mtime_extra) + sizeof(uint32_t);
    if (EXT2_INODE_SIZE(fs_->super) >= kEndOfTime &&
        size_t{EXT2_GOOD_OLD_INODE_SIZE} + raw.i_extra_isize >= kEndOfTime) {
        // Two more bits of seconds, and the nanoseconds.
        node.seconds += static_cast<int64_t>(raw.i_mtime_extra & 3) << 32;
        node.nanoseconds = raw.i_mtime_extra >> 2;
        if (node.nanoseconds >= 1'000'000'000) FailIn(number, "an impossible time");
    }
    return node;
}

// Adds the names in a block of a directory, or in an area of an inode. The directory's first block
// must start with "." and "..".
void Ext4::AddNames(const Inode& directory, std::string_view entries, bool is_start,
                    std::vector<Name>* names) const {
    size_t index = 0;
    for (size_t at = 0; at < entries.size(); ++index) {
        ext2_dir_entry_2 entry;
        constexpr size_t kHeader = offsetof(ext2_dir_entry_2, name);
        if (entries.size() - at < kHeader) FailIn(directory.number, "a directory entry cut off");
        memcpy(&entry, &entries[at], kHeader);
        // A length of 64 KiB does not fit the field.
        const bool is_all = entries.size() == 65536 && (entry.rec_len == 65535 || !entry.rec_len);
        const size_t size = is_all ? entries.size() : entry.rec_len;
        if (size < kHeader || size % 4 != 0 || size > entries.size() - at ||
            entry.name_len > size - kHeader) {
            FailIn(directory.number, "a directory entry of a wrong size");
        }
        const std::string_view name = entries.substr(at + kHeader, entry.name_len);
        at += size;
        if (is_start && index < 2) {
            if (entry.inode == 0 || name != (index == 0 ? "." : "..")) {
                FailIn(directory.number, "a directory without '.' and '..'");
            }
        } else if (entry.inode != 0) {
            names->push_back({std::string(name), entry.inode});
        }
        if (names->size() > limits::kImageNames) CheckNames(directory.number, *names);
    }
    if (is_start && index < 2) FailIn(directory.number, "a directory without '.' and '..'");
}

std::vector<Name> Ext4::List(uint64_t number) const {
    const Inode directory = ReadInode(number, S_IFDIR, "directory");
    std::vector<Name> names;
    if ((directory.raw.i_flags & EXT4_INLINE_DATA_FL) != 0) {
        // The data are the parent's inode number, the names in the rest of the inode's block area,
        // and the names in an attribute.
        const std::string data = InlineContent(directory);
        constexpr size_t kParent = 4, kInBlocks = sizeof(directory.raw.i_block);
        if (data.size() < kInBlocks) FailIn(number, "truncated");
        const std::string_view view = data;
        AddNames(directory, view.substr(kParent, kInBlocks - kParent), false, &names);
        AddNames(directory, view.substr(kInBlocks), false, &names);
    } else {
        const uint64_t size = directory.size(), block_size = fs_->blocksize;
        if (size == 0 || size % block_size != 0) FailIn(number, "a directory of a wrong size");
        if (size > limits::kImageDirectory) {
            FailIn(number, "a directory of more than " + std::to_string(limits::kImageDirectory) +
                                   " bytes");
        }
        std::string block(block_size, '\0');
        for (uint64_t i = 0; i < size / block_size; ++i) {
            const uint64_t place = BlockOf(directory, i);
            if (place == 0) FailIn(number, "a directory with a hole");
            Check(ext2fs_read_dir_block4(fs_, place, block.data(), 0,
                                         static_cast<ext2_ino_t>(number)),
                  In(number));
            AddNames(directory, block, i == 0, &names);
        }
    }
    CheckNames(number, names);
    return names;
}

std::string Ext4::Read(uint64_t number, uint64_t offset, size_t size) const {
    const Inode file = ReadInode(number, S_IFREG, "regular file");
    if (offset >= file.size()) return "";
    return Content(file, offset, std::min<uint64_t>(size, file.size() - offset));
}

std::string Ext4::Target(uint64_t number) const {
    const Inode link = ReadInode(number, S_IFLNK, "symbolic link");
    if (link.size() == 0 || link.size() > kLongestTarget) FailIn(number, "a link of a wrong size");
    const bool is_inline = (link.raw.i_flags & EXT4_INLINE_DATA_FL) != 0;
    std::string target;
    if (!is_inline && link.size() < sizeof(link.raw.i_block)) {
        target.assign(reinterpret_cast<const char*>(link.raw.i_block), link.size());
    } else {
        target = Content(link, 0, link.size());
    }
    if (target.find('\0') != std::string::npos) FailIn(number, "a link with a zero byte");
    return target;
}

}  // namespace

std::unique_ptr<FileSystem> OpenExt4(const Source& source) {
    ext2_super_block super;
    if (source.size() < kSuperOffset + sizeof(super)) return nullptr;
    source.Read(kSuperOffset, &super, sizeof(super));
    if (super.s_magic != EXT2_SUPER_MAGIC) return nullptr;
    CheckHead(super, source.size());
    return std::make_unique<Ext4>(source);
}

}  // namespace images
