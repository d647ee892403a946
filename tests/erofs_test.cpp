// The reader of EROFS images: images that others made read as the tree that they were made of, and
// images written by hand show what is read and what is refused.

#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <tuple>

#include <gmock/gmock.h>
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
using testing::ElementsAre;

constexpr size_t kPiece = 65521;  // what is read at once, no multiple of anything
constexpr uint64_t kMetaboxBit = uint64_t{1} << 63;

// Bytes and then zeros. Counts what is read.
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
    std::string content;  // or where a link leads
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

// What damage an image has, as its reader tells it.
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

// What newer makers write. The three hold the same tree.
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

TEST(ErofsTest, ChecksTheSuperblock) {
    std::string image = Unxz(IMAGES_DIR "/lzma-tail-64k.img.xz");
    image[kSuperblock + 64] ^= 1;  // the name of the volume
    EXPECT_EQ(DamageOf([&] { Walk(image); }), "EROFS superblock: wrong checksum");
}

}  // namespace
