// The reader of EROFS images. Images from image builders must be read as the tree that they were
// made from; images written by hand show which features are read and which damage is refused.

#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <tuple>

#include <gtest/gtest.h>
#include <lzma.h>

#include <android-base/file.h>

#include "erofs_image.h"
#include "file_system.h"

namespace {

namespace fs = std::filesystem;
using namespace erofs_image;
using images::Damage;
using images::FileSystem;
using images::Node;

constexpr size_t kPiece = 65521;  // bytes that are read at once: a prime number
constexpr uint64_t kMetaboxBit = uint64_t{1} << 63;

// A source of bytes followed by zeros, which counts the bytes that are read.
class Memory : public images::Source {
  public:
    explicit Memory(std::string bytes, uint64_t zeros = 0) : bytes_(bytes), zeros_(zeros) {}

    uint64_t size() const override { return bytes_.size() + zeros_; }
    void Read(uint64_t offset, void* to, size_t size) const override {
        ASSERT_LE(offset, this->size());
        ASSERT_LE(size, this->size() - offset);
        memset(to, 0, size);
        if (offset < bytes_.size()) {
            memcpy(to, bytes_.data() + offset, std::min<uint64_t>(size, bytes_.size() - offset));
        }
        count_ += size;
    }
    uint64_t TakeCount() { return std::exchange(count_, 0); }

  private:
    const std::string bytes_;
    const uint64_t zeros_;
    mutable uint64_t count_ = 0;
};

struct Entry {
    mode_t mode;
    int64_t seconds;
    uint32_t nanoseconds;
    std::string content;  // or the target of a link
    bool operator==(const Entry& other) const {
        return std::tie(mode, seconds, nanoseconds, content) ==
               std::tie(other.mode, other.seconds, other.nanoseconds, other.content);
    }
};
using Tree = std::map<std::string, Entry>;

std::string ReadAll(const FileSystem& files, uint64_t id, uint64_t size) {
    std::string content;
    while (content.size() < size) {
        const std::string piece = files.Read(id, content.size(), kPiece);
        if (piece.empty()) break;
        content += piece;
    }
    EXPECT_EQ(content.size(), size);
    EXPECT_EQ(files.Read(id, size, 1), "");
    return content;
}

void Walk(const FileSystem& files, uint64_t id, const std::string& path, Tree* tree) {
    const Node node = files.Look(id);
    EXPECT_EQ(node.id, id);
    Entry entry = {node.mode, node.seconds, node.nanoseconds, ""};
    if (S_ISREG(node.mode)) entry.content = ReadAll(files, id, node.size);
    if (S_ISLNK(node.mode)) entry.content = files.Target(id);
    tree->insert({path, entry});
    if (!S_ISDIR(node.mode)) return;
    for (const auto& name : files.List(id)) Walk(files, name.node, path + "/" + name.name, tree);
}

Tree Walk(const std::string& image) {
    const Memory memory(image);
    const auto files = images::OpenErofs(memory);
    if (files == nullptr) throw Damage("no EROFS image");
    Tree tree;
    Walk(*files, files->root(), "", &tree);
    return tree;
}

std::string ReadFile(const std::string& path) {
    std::string content;
    EXPECT_TRUE(android::base::ReadFileToString(path, &content)) << path;
    return content;
}

Tree WalkDirectory(const std::string& directory) {
    Tree tree;
    const auto add = [&](const fs::path& path) {
        struct stat stat;
        ASSERT_EQ(lstat(path.c_str(), &stat), 0);
        Entry entry = {stat.st_mode, stat.st_mtim.tv_sec,
                       static_cast<uint32_t>(stat.st_mtim.tv_nsec), ""};
        if (S_ISREG(stat.st_mode)) entry.content = ReadFile(path);
        if (S_ISLNK(stat.st_mode)) entry.content = fs::read_symlink(path);
        tree.insert({path.string().substr(directory.size()), entry});
    };
    add(directory);
    for (const auto& entry : fs::recursive_directory_iterator(directory)) add(entry.path());
    return tree;
}

void ExpectSame(const Tree& tree, const Tree& expected, bool with_times) {
    EXPECT_EQ(tree.size(), expected.size());
    for (const auto& [path, entry] : expected) {
        const auto found = tree.find(path);
        ASSERT_NE(found, tree.end()) << path;
        EXPECT_EQ(found->second.mode, entry.mode) << path;
        EXPECT_TRUE(found->second.content == entry.content) << path;
        if (!with_times) continue;
        EXPECT_EQ(found->second.seconds, entry.seconds) << path;
        EXPECT_EQ(found->second.nanoseconds, entry.nanoseconds) << path;
    }
}

std::string Unxz(const std::string& path) {
    const std::string compressed = ReadFile(path);
    std::string bytes(8 << 20, '\0');
    uint64_t memory = UINT64_MAX;
    size_t in = 0, out = 0;
    EXPECT_EQ(lzma_stream_buffer_decode(&memory, 0, nullptr,
                                        reinterpret_cast<const uint8_t*>(compressed.data()), &in,
                                        compressed.size(), reinterpret_cast<uint8_t*>(bytes.data()),
                                        &out, bytes.size()),
              LZMA_OK)
            << path;
    bytes.resize(out);
    return bytes;
}

// Returns the text of the damage that `read` finds, or "".
std::string DamageOf(const std::function<void()>& read) {
    try {
        read();
    } catch (const Damage& damage) {
        return damage.what();
    }
    return "";
}

void Shell(const std::string& command) {
    ASSERT_EQ(system(("{ PATH=$PATH:/usr/sbin; " + command + "; } >/dev/null 2>&1").c_str()), 0)
            << command;
}

std::vector<std::string> Samples(const std::string& directory) {
    std::vector<std::string> paths;
    for (const auto& entry : fs::directory_iterator(directory)) {
        if (entry.path().extension() == ".xz" && entry.path().stem().extension() == ".img") {
            paths.push_back(entry.path());
        }
    }
    return paths;
}

TEST(ErofsTest, ReadsEverySampleAsItsTree) {
    const char* given = getenv("EXTPROP_SHARED");
    const std::string directory = std::string(given ? given : EXTPROP_SHARED) + "/images/erofs";
    if (!fs::exists(directory)) GTEST_SKIP() << "there is no " << directory;
    const TemporaryDir expected;
    Shell(std::string("tar -xJf ") + directory + "/tree.tar.xz -C " + expected.path);
    const Tree tree = WalkDirectory(expected.path);
    const auto samples = Samples(directory);
    EXPECT_FALSE(samples.empty());
    for (const std::string& path : samples) {
        SCOPED_TRACE(path);
        ExpectSame(Walk(Unxz(path)), tree, true);
    }
}

// Images of newer image builders. All three hold the same tree.
TEST(ErofsTest, ReadsWhatNewerMakersWrite) {
    const auto samples = Samples(IMAGES_DIR);
    ASSERT_EQ(samples.size(), 3);
    const Tree tree = Walk(Unxz(samples[0]));
    EXPECT_EQ(tree.size(), 777);
    EXPECT_EQ(tree.at("/tiny.prop").content, "ro.tiny=1\n");
    EXPECT_EQ(tree.at("/etc/absolute").content, "/build.prop");
    EXPECT_EQ(tree.at("/zero.bin").content, std::string(300'000, '\0'));
    for (const std::string& path : samples) {
        SCOPED_TRACE(path);
        ExpectSame(Walk(Unxz(path)), tree, true);
    }
}

struct Case {
    const char* name;
    Image image;
    std::string content;
};

// Returns the images written by hand, with this block size.
std::vector<Case> Cases(unsigned bits) {
    Image image;
    image.block_bits = bits;
    const size_t block = image.block(), half = block / 2;
    const uint32_t at = image.DataBlock();
    const uint64_t place = image.DataPlace();
    const std::string text = Text(5 * block), gap(8, '\0');
    const auto lz4 = [&](size_t begin, size_t size) {
        return Compress(kLz4, text.substr(begin, size));
    };
    std::vector<Case> cases;
    const auto add = [&](const char* name, const std::string& file, const std::string& data,
                         const std::string& content, const std::string& packed = "") {
        image.file = file;
        image.data = data;
        image.packed = packed;
        cases.push_back({name, image, content});
    };

    // Uncompressed layouts.
    const size_t size = 2 * block + half;
    const std::string flat = text.substr(0, size), zeros(size, '\0');
    add("plain", Inode(kPlain, size, at), flat, flat);
    add("extended", Inode(kPlain | kExtended, size, at, 0), flat, flat);
    add("short", Inode(kPlain | kShort, size, at, 0), flat, flat);
    add("hole", Inode(kPlain, size, UINT32_MAX), "", zeros);
    add("extended hole", Inode(kPlain | kExtended, size, UINT32_MAX, UINT16_MAX), "", zeros);
    add("short hole", Inode(kPlain | kShort, size, UINT32_MAX, UINT16_MAX), "", zeros);
    add("inline", Inode(kInline, block + 100, at) + text.substr(block, 100), text.substr(0, block),
        text.substr(0, block + 100));
    add("empty", Inode(kInline, 0, 0), "", "");

    // Chunks of two blocks, of one, and after attributes.
    add("chunks", Inode(kChunks, 4 * block + 10, 1) + P32(at + 2) + P32(UINT32_MAX) + P32(at),
        text.substr(0, 4 * block),
        text.substr(2 * block, 2 * block) + std::string(2 * block, '\0') + text.substr(0, 10));
    std::string labelled = Inode(kChunks, size, 0x20).replace(2, 2, P16(1));
    add("long chunks",
        labelled + std::string(16, '\0') + P32(7) + P32(at + 1) + P32(7) + P32(UINT32_MAX) +
                P32(7) + P32(at),
        text.substr(0, 2 * block),
        text.substr(block, block) + std::string(block, '\0') + text.substr(0, half));
    add("48-bit chunks",
        Inode(kChunks, size, 0x60) + P32(0) + P32(at) + P32(UINT16_MAX) + P32(UINT32_MAX) + P32(0) +
                P32(at + 1),
        text.substr(0, size),
        text.substr(0, block) + std::string(block, '\0') + text.substr(block, half));

    // Full indexes. The last one only marks the end.
    const std::string mixed =
            PadFront(lz4(0, block + 100), block) +
            PadBack(text.substr(block + 100, block - 50), block) +
            PadFront(Compress(kDeflate, text.substr(2 * block + 50, half)), block);
    add("two heads",
        Inode(kCompressed, size + 50, 0) + MapHeader(0, 0, kLz4 | kDeflate << 4) + gap +
                Index(1, 0, at) + Index(0, 100, at + 1) + Index(3, 50, at + 2),
        mixed, text.substr(0, size + 50));
    add("partial",
        Inode(kCompressed, block + 30, 0) + MapHeader(0, 0) + gap + Index(1 | 0x8000, 0, at) +
                Index(0, 30, 0),
        PadFront(lz4(0, block + 100), block), text.substr(0, block + 30));
    add("interlaced",
        Inode(kCompressed, 2 * block + 100, 0) + MapHeader(0, 0x10) + gap + Index(1, 0, at) +
                Index(0, 100, at + 1) + Index(0, 100, 0),
        PadFront(lz4(0, block + 100), block) + text.substr(2 * block, 100) +
                text.substr(block + 100, block - 100),
        text.substr(0, 2 * block + 100));
    const std::string big = Compress(kLz4, text);  // in two blocks or more
    const uint32_t blocks = (big.size() + block - 1) / block;
    for (const auto& [name, type, advice] :
         {std::tuple("big", 1, 2), std::tuple("big of the second head", 3, 4)}) {
        add(name,
            Inode(kCompressed, 5 * block, 0) + MapHeader(0, advice) + gap + Index(type, 0, at) +
                    Index(2, 0, blocks | 0x800) + Index(2, 0, 2) + Index(2, 0, 3) + Index(2, 0, 4),
            PadFront(big, blocks * block), text);
    }
    add("fragment", Inode(kCompressed, half, 0) + P64(uint64_t{1} << 63 | 9), "",
        text.substr(9, half), text.substr(0, block));
    add("fragment at the end",
        Inode(kCompressed, block + half, 0) + MapHeader(5, 0x20) + gap + Index(1, 0, at) +
                Index(0, 0, 0),
        PadFront(lz4(0, block), block), text.substr(0, block) + text.substr(5, half),
        text.substr(0, block));
    add("inline at the end",
        Inode(kCompressed, block + 100, 0) + MapHeader(lz4(block, 100).size() << 16, 8) + gap +
                Index(0, 0, at) + Index(1, 0, 0) + lz4(block, 100),
        text.substr(0, block), text.substr(0, block + 100));

    // Compact indexes.
    if (bits <= 14) {
        const unsigned low = std::max(bits, 12U);
        const std::string pack = P16(1U << low) + P16(1U << low | 40) + P32(at - 1);
        const std::string tail = P16(2U << low | 1) + P16(0) + P32(at);
        add("compact", Inode(kCompact, size, 0) + MapHeader(0, 0) + pack + tail,
            PadFront(lz4(0, block + 40), block) +
                    PadFront(lz4(block + 40, block + half - 40), block),
            flat);
    }

    // Encoded extents, which need not begin at a block.
    const std::string junk = "any", stream = lz4(0, 2 * block), plain = text.substr(0, block);
    const uint32_t partial = 1U << 27, lz4_bits = 1U << 28;
    const uint32_t length = lz4_bits | stream.size();
    // Clusters have two blocks in the forms with one record for each cluster.
    const auto encoded = [&](uint16_t record, uint32_t count, size_t file_size) {
        return Inode(kCompressed, file_size, 0) +
               MapHeader(count, 1 | record << 1, 0, record < 2 ? 1 : 0);
    };
    add("extents of 4 bytes",
        encoded(0, 0, 5 * block) + P64(place + 3) + P32(length) + P32(0) + P32(block),
        junk + stream + plain, text.substr(0, 2 * block) + std::string(2 * block, '\0') + plain);
    add("extents of 8 bytes and a fragment",
        encoded(1, 0, 2 * block + half).replace(36, 2, P16(1 | 1 << 1 | 0x20)) + P32(length) +
                P32(place + 3) + P32(8) + P32(0),
        junk + stream, text.substr(0, 2 * block) + text.substr(8, half), text.substr(0, block));
    add("extents of 16 bytes",
        PadBack(encoded(2, 2, size), 48) + P32(length | partial) + P32(place + 3) + P32(0) +
                P32(11) + P32(block) + P32(place + 3 + stream.size()) + P32(0) +
                P32(11 + block + half),
        junk + stream + plain,
        std::string(11, '\0') + text.substr(0, block + half) + plain.substr(0, block - 11));
    add("extents of 32 bytes",
        PadBack(encoded(3, 1, size), 64) + P32(length | partial) + P32(place + 3) + P32(0) +
                P32(size - half) + std::string(16, '\0'),
        junk + stream, std::string(size - half, '\0') + text.substr(0, half));
    for (const auto& [name, algorithm] :
         {std::tuple("lz4", kLz4), std::tuple("MicroLZMA", kMicroLzma),
          std::tuple("deflate", kDeflate), std::tuple("zstd", kZstd)}) {
        const std::string all = Compress(algorithm, text.substr(0, 2 * block));
        const uint32_t coded = (algorithm + 1) << 28 | all.size();
        const auto file = [&](size_t file_size, uint32_t bits) {
            return PadBack(encoded(2, 1, file_size), 48) + P32(coded | bits) + P32(place) + P32(0) +
                   P32(0);
        };
        add(name, file(2 * block, 0), all, text.substr(0, 2 * block));
        add(name, file(block + 7, partial), all, text.substr(0, block + 7));
    }

    // Inodes in the metabox, and old data without padding.
    image.is_in_metabox = true;
    add("in the metabox",
        Inode(kCompressed, block + 100, 0) + MapHeader(lz4(block, 100).size() << 16, 8) + gap +
                Index(0, 0, at) + Index(1, 0, 0) + lz4(block, 100),
        text.substr(0, block), text.substr(0, block + 100));
    image.is_in_metabox = false;
    image.features = 0;
    add("not padded",
        Inode(kCompressed, block + 30, 0) + MapHeader(0, 0) + gap + Index(1, 0, at) +
                Index(2, 0, 1),
        PadBack(lz4(0, block + 30), block), text.substr(0, block + 30));
    return cases;
}

TEST(ErofsTest, ReadsWhatIsWrittenByHand) {
    for (unsigned bits = 9; bits <= 16; ++bits) {
        for (const Case& written : Cases(bits)) {
            SCOPED_TRACE(written.name + (" in blocks of 2^" + std::to_string(bits)));
            Tree tree;
            EXPECT_EQ(DamageOf([&] { tree = Walk(written.image.Write()); }), "");
            EXPECT_TRUE(tree["/file"].content == written.content);
        }
    }
}

// Returns an image written by hand, by its name.
const Image& Find(const std::vector<Case>& cases, const std::string& name) {
    for (const Case& known : cases) {
        if (known.name == name) return known.image;
    }
    throw std::out_of_range(name);
}

TEST(ErofsTest, RefusesDamage) {
    // Places in an image of blocks of 512 bytes.
    constexpr uint64_t kHead = kSuperblock, kRoot = 1536 + 32, kEntries = kRoot + 32,
                       kNames = kEntries + 36, kPacked = 1536 + 8 * 32, kMetabox = 1536 + 10 * 32,
                       kFile = 1536 + 16 * 32, kMap = kFile + 32, kTable = kMap + 16;
    using Patches = std::vector<std::pair<uint64_t, std::string>>;
    const std::tuple<const char*, Patches, const char*> table[] = {
            // The superblock.
            {"plain", {{kHead + 12, "\x08"}}, "EROFS superblock: unsupported block size"},
            {"plain", {{kHead + 12, "\x11"}}, "EROFS superblock: unsupported block size"},
            {"plain", {{kHead + 13, "\xff"}}, "EROFS superblock: it ends after the image"},
            {"plain", {{kHead + 13, P16(0)}}, "EROFS superblock: no number of the metabox inode"},
            {"plain", {{kHead + 8, P32(1)}}, "EROFS superblock: wrong checksum"},
            {"plain", {{kHead + 80, P32(0x200)}}, "EROFS superblock: unknown features 512"},
            {"plain", {{kHead + 86, P16(1)}}, ""},
            {"plain",
             {{kHead + 80, P32(8)}, {kHead + 86, P16(1)}},
             "EROFS superblock: data on other devices"},
            {"plain",
             {{kHead + 90, "\1"}},
             "EROFS superblock: unsupported size of directory blocks"},
            {"plain",
             {{kHead + 96, P64(kMetaboxBit)}},
             "EROFS superblock: wrong number of the packed inode"},
            {"plain",
             {{kHead + 128, P64(0)}},
             "EROFS superblock: wrong number of the metabox inode"},
            {"plain",
             {{kHead + 128, P64(kMetaboxBit | 1)}},
             "EROFS superblock: wrong number of the metabox inode"},
            {"plain", {{kHead + 84, P16(0x1F)}}, "EROFS superblock: unknown compression"},
            {"plain", {{kHead + 144, P16(13)}}, "EROFS superblock: short record of lz4"},
            {"plain",
             {{kHead + 162, P32(4095)}},
             "EROFS superblock: unsupported dictionary size of MicroLZMA"},
            {"plain", {{kHead + 166, P16(1)}}, "EROFS superblock: unsupported format of MicroLZMA"},
            {"plain", {{kHead + 178, P16(16)}}, "EROFS superblock: unsupported window of deflate"},
            {"plain", {{kHead + 186, P16(1)}}, "EROFS superblock: unsupported format of zstd"},
            {"plain", {{kHead + 187, P16(11)}}, "EROFS superblock: unsupported window of zstd"},
            {"plain",
             {{kHead + 184, P16(60000)}},
             "EROFS superblock: an algorithm's record ends after the image"},
            {"plain", {{kHead + 14, P16(kFileId)}}, "inode 16: the root is not a directory"},
            {"plain", {{kHead + 14, P16(65535)}}, "inode 65535: beyond the end of the inodes"},
            {"plain", {{kHead + 112, P64(kFileId)}}, "inode 16: the root is not a directory"},

            // Inodes.
            {"plain", {{kRoot, P16(kInline | 0x20)}}, "inode 1: unknown format"},
            {"plain", {{kRoot, P16(5 << 1)}}, "inode 1: unknown layout"},
            {"plain",
             {{kRoot + 2, P16(65535)}},
             "inode 1: attributes beyond the end of the inodes"},
            {"plain", {{kRoot + 4, P16(0)}}, "inode 1: unknown type of file"},
            {"plain",
             {{kRoot + 8, P32(500)}},
             "inode 1: inline data that cross the end of a block"},
            {"plain",
             {{kRoot, P16(kPlain)}, {kRoot + 8, P32(33 << 20)}, {kRoot + 16, P32(UINT32_MAX)}},
             "inode 1: a directory of 34603008 bytes; the limit is 33554432"},
            {"plain",
             {{kEntries + 24, P64(uint64_t{1} << 40)}},
             "inode 1099511627776: beyond the end of the inodes"},
            {"plain",
             {{kEntries + 24, P64(~kMetaboxBit)}},
             "inode 9223372036854775807: beyond the end of the inodes"},
            {"plain",
             {{kEntries + 24, P64(kMetaboxBit | 100)}},
             "metabox inode 100: beyond the end of the inodes"},
            {"not padded",
             {{kEntries + 24, P64(kMetaboxBit | 1)}},
             "metabox inode 1: there is no metabox"},

            // Directories.
            {"plain", {{kEntries + 8, P16(0)}}, "inode 1: directory, wrong number of entries"},
            {"plain", {{kEntries + 8, P16(37)}}, "inode 1: directory, wrong number of entries"},
            {"plain", {{kEntries + 8, P16(48)}}, "inode 1: directory, wrong number of entries"},
            {"plain", {{kRoot + 8, P32(11)}}, "inode 1: directory, too short for an entry"},
            {"plain", {{kEntries + 20, P16(36)}}, "inode 1: directory, names out of order"},
            {"plain", {{kEntries + 32, P16(43)}}, "inode 1: directory, names out of order"},
            {"plain", {{kEntries, P64(5)}}, "inode 1: directory, '.' is something else"},
            {"plain", {{kNames + 4, "/"}}, "inode 1: a name with a '/' or a zero byte"},
            {"plain", {{kNames + 1, P16(0)}}, "inode 1: a name with a '/' or a zero byte"},
            {"plain", {{kNames + 3, P16(0)}}, "inode 1: an empty name"},
            {"plain", {{kNames + 3, P16('.')}}, "inode 1: the name '.' where it is not allowed"},
            {"plain",
             {{kNames + 3, ".." + P16(0)}},
             "inode 1: the name '..' where it is not allowed"},
            {"plain", {{kNames + 1, "fifi" + P16(0)}}, "inode 1: the same name twice"},

            // Links.
            {"plain", {{kFile + 4, P16(0120777)}}, ""},
            {"plain",
             {{kFile + 4, P16(0120777)}, {kFile + 8, P32(4096)}},
             "inode 16: a link's target of a wrong length"},
            {"empty", {{kFile + 4, P16(0120777)}}, "inode 16: a link's target of a wrong length"},
            {"hole", {{kFile + 4, P16(0120777)}}, "inode 16: a link's target with a zero byte"},

            // Data as they are.
            {"plain", {{kFile + 16, P32(100'000)}}, "inode 16: data beyond the end of the image"},
            {"extended",
             {{kFile + 6, P16(UINT16_MAX)}},
             "inode 16: data beyond the end of the image"},
            {"plain", {{kFile + 8, P32(1 << 20)}}, "inode 16: data beyond the end of the image"},
            {"inline",
             {{kFile + 8, P32(512 + 481)}},
             "inode 16: inline data that cross the end of a block"},
            {"chunks", {{kFile + 16, P32(0x81)}}, "inode 16: unknown format of chunks"},
            {"chunks", {{kFile + 8, P32(UINT32_MAX)}}, "inode 16: a map that ends after its data"},
            {"chunks", {{kMap, P32(100'000)}}, "inode 16: data beyond the end of the image"},
            {"long chunks", {{kFile + 50, P16(1)}}, "inode 16: a chunk on another device"},
            {"48-bit chunks", {{kMap, P16(1)}}, "inode 16: data beyond the end of the image"},

            // Indexes.
            {"two heads", {{kMap + 7, "\1"}}, "inode 16: clusters of several blocks"},
            {"two heads",
             {{kMap + 6, "\4"}},
             "inode 16: an algorithm that the superblock does not name"},
            {"two heads",
             {{kFile + 8, P32(UINT32_MAX)}},
             "inode 16: 8388608 clusters; the limit is 262144"},
            {"two heads", {{kFile + 8, P32(1 << 20)}}, "inode 16: a map that ends after its data"},
            {"two heads", {{kTable + 2, P16(1)}}, "inode 16: no extent starts at 0"},
            {"two heads", {{kTable, P16(2)}}, "inode 16: no extent starts at 0"},
            {"two heads",
             {{kTable + 10, P16(512)}},
             "inode 16: an extent starts outside its cluster"},
            {"two heads",
             {{kTable + 8, P16(2)}, {kTable + 12, P16(0x801)}},
             "inode 16: a count of blocks where none is allowed"},
            {"two heads",
             {{kTable, P16(2)}, {kTable + 8, P16(2)}, {kTable + 16, P16(2)}},
             "inode 16: no extents"},
            {"fragment at the end",
             {{kTable, P16(2)}, {kTable + 8, P16(2)}},
             "inode 16: no extents"},
            {"two heads",
             {{kTable + 4, P32(100'000)}},
             "inode 16: data beyond the end of the image"},
            {"two heads",
             {{kTable + 18, P16(200)}},
             "inode 16: an extent without some of its data"},
            {"two heads", {{3072, std::string(512, '\0')}}, "inode 16: no compressed data"},
            {"big", {{kTable + 12, P16(2)}}, "inode 16: no count of an extent's blocks"},
            {"big", {{kTable + 12, P16(0x800)}}, "inode 16: wrong count of an extent's blocks"},
            {"big", {{kTable + 12, P16(0xFFFF)}}, "inode 16: wrong count of an extent's blocks"},
            {"interlaced",
             {{kMap + 4, P16(0x14)}, {kTable + 16, P16(2)}, {kTable + 20, P16(0x802)}},
             "inode 16: an interlaced extent that is not a block"},
            {"inline at the end",
             {{kMap + 2, P16(500)}},
             "inode 16: inline data that cross the end of a block"},
            {"compact", {{kMap + 4, P16(2)}}, "inode 16: big clusters of one kind only"},
            {"compact", {{kMap + 4, P16(4)}}, "inode 16: big clusters of one kind only"},

            // Fragments.
            {"fragment",
             {{kMap, P64(kMetaboxBit | 400)}},
             "inode 16: a fragment beyond the packed inode"},
            {"fragment", {{kHead + 96, P64(0)}}, "inode 16: a fragment without a packed inode"},
            {"fragment",
             {{kPacked, P16(kCompressed)}, {kPacked + 32, P64(kMetaboxBit)}},
             "inode 8: a fragment of fragments"},
            {"in the metabox",
             {{kHead + 96, P64(8)},
              {kMetabox, P16(kCompressed)},
              {kMetabox + 32, P64(kMetaboxBit)}},
             "inode 10: a fragment of fragments"},

            // Encoded extents.
            {"extents of 16 bytes", {{kTable + 28, P32(11)}}, "inode 16: extents out of order"},
            {"extents of 16 bytes", {{kTable + 28, P32(1280)}}, "inode 16: extents out of order"},
            {"extents of 16 bytes",
             {{kTable + 3, "\x70"}},
             "inode 16: an algorithm that the superblock does not name"},
            {"extents of 16 bytes",
             {{kTable, P32(0x101FFFFF)}},
             "inode 16: an extent of 768 bytes in 2097151; the limits are 12582912 in 1048576"},
            {"extents of 16 bytes",
             {{kTable + 8, P32(1)}},
             "inode 16: data beyond the end of the image"},
            {"extents of 16 bytes",
             {{kMap, P32(1 << 20)}},
             "inode 16: 1048576 clusters; the limit is 262144"},
            {"extents of 16 bytes",
             {{kMap, P32(1000)}},
             "inode 16: a map that ends after its data"},
            {"extents of 4 bytes",
             {{kMap + 8, P64(UINT64_MAX)}},
             "inode 16: data beyond the end of the image"},
            {"lz4",
             {{kFile + 8, P32(13 << 20)}, {kTable, P32(1 << 28 | 600)}},
             "inode 16: an extent of 13631488 bytes in 600; the limits are 12582912 in 1048576"},
    };
    const auto cases = Cases(9);
    for (const auto& [name, patches, damage] : table) {
        std::string image = Find(cases, name).Write();
        for (const auto& [place, bytes] : patches) image.replace(place, bytes.size(), bytes);
        EXPECT_EQ(DamageOf([&image = image] { Walk(image); }), damage)
                << name << " at " << patches[0].first;
    }

    // Compact indexes of blocks that have none.
    for (const auto& [bits, advice, damage] :
         {std::tuple(15, 0, "inode 16: compact indexes with blocks of this size"),
          std::tuple(13, 1, "inode 16: indexes of two bytes with blocks of this size")}) {
        Image image;
        image.block_bits = bits;
        image.file = Inode(kCompact, 30 * image.block(), 0) + MapHeader(0, advice);
        EXPECT_EQ(DamageOf([&image = image] { Walk(image.Write()); }), damage);
    }
}

// A compressed stream must end with its extent, and an extent with its stream.
TEST(ErofsTest, RefusesStreamsOfAnotherLength) {
    const auto cases = Cases(9);
    for (const char* name : {"lz4", "MicroLZMA", "deflate", "zstd"}) {
        const Image& image = Find(cases, name);
        const uint64_t size = image.FilePlace() + 8, length = image.FilePlace() + 48;
        for (const auto& [place, difference] : {std::pair(size, -1), std::pair(size, 1),
                                                std::pair(length, -1), std::pair(length, 1)}) {
            std::string bytes = image.Write();
            bytes[place] = static_cast<char>(bytes[place] + difference);
            EXPECT_EQ(DamageOf([&] { Walk(bytes); }), "inode 16: wrong compressed data at 0")
                    << name << " " << place << " " << difference;
        }
    }
}

TEST(ErofsTest, RefusesImagesThatAreCut) {
    for (const auto& [name, image, content] : Cases(9)) {
        const std::string bytes = image.Write();
        for (size_t size = 0; size < bytes.size(); size += 13) {
            Tree tree;
            const std::string damage = DamageOf([&] { tree = Walk(bytes.substr(0, size)); });
            EXPECT_TRUE(!damage.empty() || tree["/file"].content == content) << name << size;
        }
    }
}

TEST(ErofsTest, LooksAtInodes) {
    const auto look = [](const std::string& inode) {
        Image image;
        image.file = inode;
        const Memory memory(image.Write());
        const Node node = images::OpenErofs(memory)->Look(kFileId);
        return std::tuple(node.mode, node.user, node.group, node.size, node.seconds,
                          node.nanoseconds);
    };
    EXPECT_EQ(look(Inode(kPlain, 3 << 20, UINT32_MAX)),
              std::tuple(0100644, 7, 8, 3 << 20, 1'600'000'005, 77));
    EXPECT_EQ(look(Inode(kPlain | kExtended, uint64_t{3} << 40, UINT32_MAX)),
              std::tuple(0100644, 7, 8, uint64_t{3} << 40, 1'700'000'000, 123));
    // In inodes of types without data, the fields for data may have any value.
    for (const uint16_t mode : {0010600, 0020600, 0060600, 0140600}) {
        EXPECT_EQ(look(Inode(5 << 1, 1000, 100'000, 0, mode)),
                  std::tuple(mode, 7, 8, 0, 1'600'000'005, 77));
    }
}

TEST(ErofsTest, AnswersOnlyWhatANodeIs) {
    const Image image = Cases(9)[0].image;
    const Memory memory(image.Write());
    const auto files = images::OpenErofs(memory);
    EXPECT_EQ(DamageOf([&] { files->List(kFileId); }), "inode 16: not a directory");
    EXPECT_EQ(DamageOf([&] { files->Read(kRootId, 0, 1); }), "inode 1: not a regular file");
    EXPECT_EQ(DamageOf([&] { files->Target(kFileId); }), "inode 16: not a symbolic link");
    EXPECT_EQ(images::OpenErofs(Memory(std::string(4096, '\0'))), nullptr);
}

// Data that are not asked for are not read, however large they are.
TEST(ErofsTest, ReadsNoMoreThanItsAnswersTake) {
    constexpr uint64_t kLarge = 400 << 20;
    constexpr size_t kNames = 100'000;
    Image image;
    std::string& names = image.data;
    for (size_t i = 0; i < kNames;) {
        std::string entries, letters;
        const size_t count = std::min<size_t>(200, kNames - i);
        for (size_t end = i + count; i < end; ++i) {
            entries += P64(kFileId) + P16(count * 12 + letters.size()) + P16(0);
            letters += "n" + std::to_string(i);
        }
        names += i < kNames ? PadBack(entries + letters, image.block()) : entries + letters;
    }
    image.file = Inode(kPlain, names.size(), image.DataBlock(), 2, 040755);
    Memory directory(image.Write());
    EXPECT_EQ(images::OpenErofs(directory)->List(kFileId).size(), kNames);
    EXPECT_LT(directory.TakeCount(), names.size() + 1000);

    image.data.clear();
    image.file = Inode(kPlain, kLarge, image.DataBlock());
    Memory file(image.Write(), kLarge);
    EXPECT_EQ(images::OpenErofs(file)->Read(kFileId, kLarge / 2, 1000), std::string(1000, '\0'));
    for (Memory* memory : {&directory, &file}) {
        memory->TakeCount();
        const auto files = images::OpenErofs(*memory);
        EXPECT_EQ(files->List(files->root()).size(), 1);
        files->Look(kFileId);
        EXPECT_LT(memory->TakeCount(), 1000);
    }

    // A file costs the same in pieces as in one read.
    constexpr uint64_t kBlocks = 1 << 14;
    image.is_in_metabox = true;
    image.data = PadFront(Compress(kLz4, Text(image.block())), image.block());
    image.file = Inode(kCompressed, kBlocks * image.block(), 0) + MapHeader(0, 0) + P64(0);
    for (uint64_t i = 0; i < kBlocks; ++i) image.file += Index(1, 0, image.DataBlock());
    Memory shared(image.Write());
    const auto files = images::OpenErofs(shared);
    ReadAll(*files, kMetaboxBit | 1, kBlocks * image.block());
    EXPECT_LT(shared.TakeCount(), image.file.size() + kBlocks * image.block() * 11 / 10);
}

// Images of the installed mkfs.erofs, with all of its options.
TEST(ErofsTest, ReadsWhatTheMakerAtHandWrites) {
    const TemporaryDir directory;
    const std::string tree = std::string(directory.path) + "/tree";
    const std::string image = std::string(directory.path) + "/image";
    fs::create_directories(tree + "/names/sub");
    const auto write = [&](const std::string& name, const std::string& content) {
        ASSERT_TRUE(android::base::WriteStringToFile(content, tree + "/" + name));
    };
    std::string noise;
    for (uint32_t i = 0, x = 1; i < 1 << 17; ++i)
        noise += static_cast<char>((x = x * 1664525 + 1013904223) >> 24);
    std::string mixed;
    for (const size_t size : {0, 1, 100, 4095, 4096, 4097, 12289, 65536, 100'001}) {
        write("text" + std::to_string(size), Text(size));
        write("noise" + std::to_string(size), noise.substr(0, size));
        mixed += Text(size) + noise.substr(0, size * 2 / 3);
    }
    write("mixed", mixed);
    write("sparse", Text(5000) + std::string(1 << 20, '\0') + Text(5000));
    for (int i = 0; i < 300; ++i)
        write("names/" + std::string(i % 250, 'n') + std::to_string(i), Text(i));
    fs::create_symlink("../text1", tree + "/names/link");
    fs::create_symlink(std::string(4000, 'x'), tree + "/names/long");
    fs::create_hard_link(tree + "/text100", tree + "/names/sub/hard");
    ASSERT_EQ(mkfifo((tree + "/fifo").c_str(), 0600), 0);
    ASSERT_EQ(chmod((tree + "/names/sub").c_str(), 01770), 0);
    const Tree expected = WalkDirectory(tree);

    for (const char* options :
         {"", "-zlz4", "-zlz4hc -C65536", "-zlz4 -C1048576", "-zlz4hc -Elegacy-compress",
          "-zlz4hc -Elegacy-compress -C65536", "-zlz4hc -Eztailpacking",
          "-zlz4hc -Eztailpacking,legacy-compress", "-zlz4hc -Efragments",
          "-zlz4hc -Efragments,legacy-compress -C65536", "-zlz4hc -Eall-fragments,dedupe",
          "-zlz4hc -Eztailpacking,dedupe", "--max-extent-bytes=8192 -zlz4", "--chunksize=4096",
          "--chunksize=65536 -Eforce-chunk-indexes", "-Eforce-inode-extended",
          "-Eforce-inode-compact", "-Enoinline_data", "-x-1"}) {
        SCOPED_TRACE(options);
        Shell("rm -f " + image + " && mkfs.erofs " + options + " " + image + " " + tree);
        const bool has_times = strcmp(options, "-Eforce-inode-compact") != 0;
        ExpectSame(Walk(ReadFile(image)), expected, has_times);
    }
}

TEST(ErofsTest, ChecksTheSuperblock) {
    std::string image = Unxz(IMAGES_DIR "/lzma-tail-64k.img.xz");
    image[kSuperblock + 64] ^= 1;  // the name of the volume
    EXPECT_EQ(DamageOf([&] { Walk(image); }), "EROFS superblock: wrong checksum");
}

}  // namespace
