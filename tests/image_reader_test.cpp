// The process that reads images: with images of each format, damaged ones, and images that exceed
// limits.

#include "reader.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <thread>

#include <openssl/sha.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android-base/file.h>

#include "confine.h"
#include "protocol.h"
#include "sanitized.h"
#include "sources.h"
#include "super.h"

namespace {

namespace fs = std::filesystem;
using android::base::unique_fd;
using images::Damage;
using images::FileSystem;
using images::Node;
using images::Reader;
using testing::HasSubstr;
using testing::StartsWith;
using testing::ThrowsMessage;

constexpr uid_t kNobody = 65534;

void Write(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

std::string ReadFile(const std::string& path) {
    std::string content;
    return android::base::ReadFileToString(path, &content) ? content : "(missing)";
}

// Returns a short content as it is, and a digest of a long one.
std::string Short(const std::string& content) {
    if (content.size() < 100) return content;
    return std::to_string(content.size()) + "#" + std::to_string(std::hash<std::string>()(content));
}

// Returns all that is in a file system: paths with types, modes, owners, times, contents, targets.
std::map<std::string, std::string> Everything(const FileSystem& system) {
    std::map<std::string, std::string> all;
    const std::function<void(const std::string&, uint64_t)> walk = [&](const std::string& path,
                                                                       uint64_t number) {
        const Node node = system.Look(number);
        std::string& said = all[path];
        char head[64];
        snprintf(head, sizeof(head), "%o %u:%u %lld ", node.mode, node.user, node.group,
                 static_cast<long long>(node.seconds));
        said = head;
        if (S_ISREG(node.mode)) said += Short(system.Read(number, 0, node.size + 1));
        if (S_ISLNK(node.mode)) said += system.Target(number);
        if (!S_ISDIR(node.mode)) return;
        for (const auto& [name, child] : system.List(number)) walk(path + "/" + name, child);
    };
    walk("", system.root());
    return all;
}

// Returns the same of a directory of this machine.
std::map<std::string, std::string> EverythingIn(const std::string& directory) {
    std::map<std::string, std::string> all;
    const auto look = [&](const fs::path& path, const std::string& name) {
        struct stat status;
        ASSERT_EQ(lstat(path.c_str(), &status), 0);
        char head[64];
        snprintf(head, sizeof(head), "%o %u:%u %lld ", status.st_mode, status.st_uid, status.st_gid,
                 static_cast<long long>(status.st_mtim.tv_sec));
        all[name] = head;
        if (S_ISREG(status.st_mode)) all[name] += Short(ReadFile(path));
        if (S_ISLNK(status.st_mode)) all[name] += fs::read_symlink(path).string();
    };
    for (const auto& entry : fs::recursive_directory_iterator(directory)) {
        look(entry.path(), entry.path().string().substr(directory.size()));
    }
    return all;
}

std::vector<unique_fd> Only(unique_fd image) {
    std::vector<unique_fd> parts;
    parts.push_back(std::move(image));
    return parts;
}

class ImageReaderTest : public testing::Test {
  protected:
    std::string Path(const std::string& path) const { return directory_.path + path; }

    void Shell(const std::string& command) const {
        const std::string line = "{ PATH=$PATH:/usr/sbin; cd " + Path("") + "; " + command +
                                 "; } >" + Path("/log") + " 2>&1";
        ASSERT_EQ(system(line.c_str()), 0) << command << ReadFile(Path("/log"));
    }

    // Makes an image, "raw", of the directory "files".
    void MakeExt4(const std::string& options, const std::string& size = "2M") const {
        Shell("rm -f raw; mke2fs -q -F -t ext4 " + options + " -d files raw " + size);
    }

    Reader Open(const std::string& name, char slot = 'a') const {
        return Reader(Only(unique_fd(open(Path("/" + name).c_str(), O_RDONLY | O_CLOEXEC))), slot);
    }

    // Reads everything in an image of these bytes. Returns the text of the damage that is found.
    std::string DamageOf(const std::string& image) const {
        Write(Path("/damaged"), image);
        try {
            const Reader reader = Open("damaged");
            for (size_t i = 0; i < reader.contained().volumes.size(); ++i)
                Everything(*reader.Open(i));
        } catch (const Damage& damage) {
            return damage.what();
        }
        return "none";
    }

    TemporaryDir directory_;
};

// Returns the node at a path.
uint64_t Find(const FileSystem& system, const std::string& path) {
    uint64_t found = system.root();
    for (const fs::path& part : fs::path(path)) {
        for (const auto& [name, node] : system.List(found)) {
            if (name != part) continue;
            found = node;
            break;
        }
    }
    return found;
}

std::string Replaced(std::string bytes, const std::string& what, const std::string& with) {
    const size_t at = bytes.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    return bytes.replace(at, with.size(), with);
}

template <typename Number>
std::string Patched(std::string bytes, size_t at, Number number) {
    return bytes.replace(at, sizeof(number), reinterpret_cast<const char*>(&number),
                         sizeof(number));
}

TEST_F(ImageReaderTest, EachFormatReadsAsItsTree) {
    fs::create_directories(Path("/files/etc/empty"));
    Write(Path("/files/etc/inline"), "in=inode\n");
    Write(Path("/files/etc/inline and more"), std::string(100, 'i'));
    std::string numbers;
    for (int i = 0; i < 60'000; ++i) numbers += std::to_string(i) + "\n";
    Write(Path("/files/blocks"), numbers);
    Write(Path("/files/q\" \"<12>"), "quoted");
    Write(Path("/files/bashrc\" .\r"), "returned");
    for (int i = 0; i < 300; ++i) Write(Path("/files/many/a longer name " + std::to_string(i)), "");
    Shell("truncate -s 700000 files/holes; printf end >>files/holes; "
          "ln -s ../blocks files/etc/fast; touch -d '2001-02-03 04:05:06' files/blocks; "
          "chmod 4751 files/blocks; chown 1000:70000 files/blocks || true");
    fs::create_symlink(std::string(900, 's'), Path("/files/slow"));
    const auto expected = EverythingIn(Path("/files"));
    for (const std::string options :
         {"-b 1024", "-b 4096", "-b 65536", "-b 1024 -O inline_data", "-b 4096 -O inline_data",
          "-b 1024 -O ^extent,^64bit", "-b 4096 -O ^extent,^64bit", "-O 64bit", "-O ^64bit",
          "-O metadata_csum", "-O ^metadata_csum,uninit_bg", "-O bigalloc",
          "-O ^dir_index,^flex_bg,meta_bg,^resize_inode", "-I 128",
          "-O ^has_journal,encrypt,casefold,verity"}) {
        SCOPED_TRACE(options);
        MakeExt4(options, "64M");
        if (options == "-b 4096") Shell("img2simg raw sparse && mv sparse raw");
        auto found = Everything(*Open("raw").Open(0));
        found.erase("");
        found.erase("/lost+found");
        EXPECT_EQ(found, expected);
    }
}

// The libraries of a format must do whatever they do on first use under the confinement too.
TEST_F(ImageReaderTest, ErofsReadsInTheProcessAsOutsideIt) {
    for (const auto& entry : fs::directory_iterator(IMAGES_DIR)) {
        SCOPED_TRACE(entry.path());
        Shell("xz -dc " + entry.path().string() + " >raw");
        const unique_fd file(open(Path("/raw").c_str(), O_RDONLY));
        const images::FileSource source(file.get());
        const auto expected = Everything(*images::OpenErofs(source));
        EXPECT_GT(expected.size(), 100u);
        EXPECT_EQ(Everything(*Open("raw").Open(0)), expected);
    }
}

TEST_F(ImageReaderTest, TimesHaveTheirExtraBits) {
    Write(Path("/files/f"), "");
    MakeExt4("-O ^metadata_csum");
    Shell("debugfs -w -R 'sif /f mtime @0x80000000' raw; "
          "debugfs -w -R 'sif /f mtime_extra 0x1d6f3455' raw");
    const auto system = Open("raw").Open(0);
    const Node node = system->Look(Find(*system, "f"));
    EXPECT_EQ(node.seconds, 0x80000000);
    EXPECT_EQ(node.nanoseconds, 123456789u);
}

TEST_F(ImageReaderTest, DamageSaysWhereItWasMet) {
    Write(Path("/files/aname1"), "");
    Write(Path("/files/aname2"), "");
    fs::create_symlink("the target", Path("/files/link"));
    for (int i = 0; i < 20; ++i) {
        Shell("printf x | dd of=files/parts bs=1 seek=" + std::to_string(i * 8192) +
              " conv=notrunc");
    }
    MakeExt4("-b 4096 -O ^metadata_csum,64bit");
    const std::string plain = ReadFile(Path("/raw"));
    MakeExt4("-b 4096 -O metadata_csum");
    const std::string checked = ReadFile(Path("/raw"));
    ASSERT_EQ(DamageOf(plain), "none");
    ASSERT_EQ(DamageOf(checked), "none");

    size_t tree = 4096;  // the only block of a tree of extents
    while (plain.compare(tree, 2, "\x0a\xf3") != 0) tree += 4096;
    constexpr size_t kSuper = 1024;
    const struct {
        std::string image;
        std::string damage;
    } cases[] = {
            {Replaced(plain, "aname1", "a/b"), "inode 2: a name with a '/' or a zero byte"},
            {Replaced(plain, "aname1", std::string("a\0b", 3)),
             "inode 2: a name with a '/' or a zero byte"},
            {Replaced(plain, "aname1", "aname2"), "inode 2: the same name twice"},
            {Replaced(plain,
                      "\x06\x01"
                      "aname1",
                      "\x01\x01."),
             "inode 2: the name '.' where it is not allowed"},
            {Replaced(plain,
                      "\x06\x01"
                      "aname1",
                      "\x02\x01.."),
             "inode 2: the name '..' where it is not allowed"},
            {Replaced(plain,
                      "\x06\x01"
                      "aname1",
                      std::string("\0", 1)),
             "inode 2: an empty name"},
            {Replaced(plain,
                      "\x06\x01"
                      "aname1",
                      "\x0f"),
             "inode 2: a directory entry of a wrong size"},
            {Replaced(plain, std::string("\x0c\0\x02\x02..\0\0", 8),
                      std::string("\x0c\0\x02\x02.x\0\0", 8)),
             "inode 2: a directory without '.' and '..'"},
            {Replaced(plain, "the target", std::string("the\0target", 10)),
             "inode 14: a link with a zero byte"},
            {Patched<uint32_t>(plain, tree + 12 + 8, 0x7fffffff),
             "inode 15: a block outside the image"},
            {Patched<uint16_t>(plain, tree, 0), "inode 15: Corrupt extent header"},
            {plain.substr(0, 1'000'001), "truncated, 1000001 bytes of 2097152"},
            {Patched<uint32_t>(plain, kSuper + 0x18, 99),
             "the superblock: blocks of an unknown size"},
            {Patched<uint32_t>(plain, kSuper + 0x20, 0),
             "the superblock: more than 262144 groups of blocks"},
            {Patched<uint16_t>(plain, kSuper + 0xfe, 3),
             "the superblock: group descriptors of an unknown size"},
            {Patched<uint32_t>(plain, kSuper + 0x60, 0x80000042),
             "the superblock: features that are not known here, 0x80000000"},
            {Patched<uint32_t>(plain, kSuper + 0x60, 0x442),
             "the superblock: features that are not known here, 0x400"},
            // An image that was in use when it was copied is read as it is.
            {Patched<uint32_t>(plain, kSuper + 0x60, 0x2c6), "none"},
            // Checksums of the superblock, a group, a directory, an inode and a tree of extents.
            {Patched<uint32_t>(checked, kSuper + 0x78, 1), "the superblock: .*checksum.*"},
            {Patched<uint32_t>(checked, 4096 + 12, 1),
             "inode 2: its group's descriptor has a wrong checksum"},
            {Replaced(checked, "aname1", "bname1"), "inode 2: Directory block checksum.*"},
            {Replaced(checked, "the target", "another one"), "inode 14: Inode checksum.*"},
            {Patched<uint32_t>(checked, tree + 12 + 8, 1), "inode 15: Extent block checksum.*"},
            {std::string(5000, 'x'), "neither an ext4 nor an EROFS nor an Android sparse image"},
            {"", "neither an ext4 nor an EROFS nor an Android sparse image"},
    };
    for (const auto& [image, damage] : cases) {
        EXPECT_THAT(DamageOf(image), testing::MatchesRegex(damage));
    }

    // A damaged image is not read otherwise.
    Write(Path("/damaged"), Replaced(checked, "the target", "another one"));
    const auto system = Open("damaged").Open(0);
    EXPECT_EQ(system->Read(Find(*system, "aname1"), 0, 1), "");
    for (const uint64_t node : {uint64_t{0}, uint64_t{99999}, UINT64_MAX}) {
        EXPECT_THAT([&] { system->Look(node); },
                    ThrowsMessage<Damage>(HasSubstr("there is no such inode")));
        EXPECT_THROW(system->List(node), Damage);
        EXPECT_THROW(system->Read(node, 0, 1), Damage);
        EXPECT_THROW(system->Target(node), Damage);
    }
    EXPECT_THROW(system->Read(system->root(), 0, 1), Damage);
    EXPECT_THROW(system->List(Find(*system, "aname1")), Damage);
}

TEST_F(ImageReaderTest, HolesCostNothing) {
    fs::create_directory(Path("/files"));
    Shell("truncate -s 3G files/hole");
    for (const char* options : {"", "-O ^extent,^64bit"}) {
        MakeExt4(options);
        const auto system = Open("raw").Open(0);
        const uint64_t hole = Find(*system, "hole");
        EXPECT_EQ(system->Look(hole).size, uint64_t{3} << 30);
        EXPECT_EQ(system->Read(hole, 1'000'000'000, 1 << 20), std::string(1 << 20, '\0'));
        EXPECT_THAT([&] { system->Read(hole, uint64_t{2} << 30, 1); },
                    ThrowsMessage<Damage>(HasSubstr("a file of more than 1073741824 bytes")));
    }
}

// Returns an Android sparse image with blocks of 16 bytes.
std::string Sparse(uint32_t blocks, const std::vector<std::pair<uint32_t, std::string>>& chunks,
                   uint32_t count) {
    std::string image;
    const auto put = [&image](std::initializer_list<uint32_t> numbers) {
        for (const uint32_t number : numbers) {
            image.append(reinterpret_cast<const char*>(&number), sizeof(number));
        }
    };
    put({0xed26ff3a, 1, 12 << 16 | 28, 16, blocks, count, 0});
    for (const auto& [type, data] : chunks) {
        const uint32_t size = type == 0xcac1 ? data.size() / 16 : 1;
        put({type, size, static_cast<uint32_t>(12 + data.size())});
        image += data;
    }
    return image;
}

// A source of bytes in memory.
class TextSource : public images::Source {
  public:
    explicit TextSource(std::string text) : text_(std::move(text)) {}
    uint64_t size() const override { return text_.size(); }
    void Read(uint64_t offset, void* to, size_t size) const override {
        if (offset > text_.size() || size > text_.size() - offset) throw Damage("truncated");
        memcpy(to, text_.data() + offset, size);
    }

  private:
    std::string text_;
};

TEST(SparseTest, ReadsAcrossItsChunks) {
    const std::string data = "0123456789abcdef0123456789ABCDEF";
    const TextSource source(Sparse(4, {{0xcac2, "wxyz"}, {0xcac1, data}, {0xcac3, ""}}, 3));
    const auto content = images::OpenSparse(source);
    const std::string expected = "wxyzwxyzwxyzwxyz" + data + std::string(16, '\0');
    for (size_t from = 0; from <= expected.size(); ++from) {
        for (size_t size = 0; size <= expected.size() - from; ++size) {
            ASSERT_EQ(images::ReadBytes(*content, from, size), expected.substr(from, size));
        }
    }
    EXPECT_THROW(images::ReadBytes(*content, 64, 1), Damage);
    EXPECT_THROW(images::ReadBytes(*content, UINT64_MAX, 2), Damage);
}

TEST(SparseTest, DamageIsRefused) {
    const std::string good = Sparse(2, {{0xcac2, "wxyz"}, {0xcac3, ""}}, 2);
    const struct {
        std::string image;
        std::string damage;
    } cases[] = {
            {Patched<uint32_t>(good, 12, 3), "of an unknown kind"},
            {Patched<uint32_t>(good, 12, 0), "of an unknown kind"},
            {Patched<uint32_t>(good, 20, 1 << 21), "of more than 1048576 chunks"},
            {Patched<uint32_t>(good, 20, 3), "truncated"},
            {Patched<uint32_t>(good, 20, 1), "missing chunks"},
            {Patched<uint32_t>(good, 28 + 8, 11), "a damaged chunk in a sparse image, at byte 28"},
            {Patched<uint32_t>(good, 28 + 8, 12), "a damaged chunk"},
            {Patched<uint32_t>(good, 28, 0xcac5), "a damaged chunk"},
            {Patched<uint32_t>(good, 28, 0xcac1), "a damaged chunk"},
            {good.substr(0, 45), "truncated"},
    };
    for (const auto& [image, damage] : cases) {
        const TextSource source(image);
        EXPECT_THAT([&source = source] { images::OpenSparse(source); },
                    ThrowsMessage<Damage>(HasSubstr(damage)));
    }
}

struct Partition {
    std::string name;
    uint32_t first_extent, extents;
};

struct SuperExtent {
    uint64_t sectors;
    uint32_t type;
    uint64_t sector;
    uint32_t device;
};

template <typename Number>
void Put(std::string* bytes, std::initializer_list<Number> numbers) {
    for (const Number number : numbers) {
        bytes->append(reinterpret_cast<const char*>(&number), sizeof(number));
    }
}

void PutDigest(std::string* bytes, size_t place, const std::string& of) {
    unsigned char digest[32];
    SHA256(reinterpret_cast<const unsigned char*>(of.data()), of.size(), digest);
    bytes->replace(place, 32, reinterpret_cast<const char*>(digest), 32);
}

// Returns the start of a super partition with two slots, up to the first sector of content.
std::string SuperHead(const std::vector<Partition>& partitions,
                      const std::vector<SuperExtent>& extents, uint32_t metadata_size = 65536) {
    std::string tables;
    for (const auto& [name, first, count] : partitions) {
        tables += name + std::string(36 - name.size(), '\0');
        Put<uint32_t>(&tables, {1, first, count, 0});
    }
    const uint32_t extents_at = tables.size();
    for (const auto& [sectors, type, sector, device] : extents) {
        Put<uint64_t>(&tables, {sectors});
        Put<uint32_t>(&tables, {type});
        Put<uint64_t>(&tables, {sector});
        Put<uint32_t>(&tables, {device});
    }
    std::string header;
    Put<uint32_t>(&header, {0x414c5030});
    Put<uint16_t>(&header, {10, 0});
    Put<uint32_t>(&header, {128});
    header.append(32, 0);
    const uint32_t end = tables.size();
    Put<uint32_t>(&header, {end});
    header.append(32, 0);
    Put<uint32_t>(&header, {0, static_cast<uint32_t>(partitions.size()), 52, extents_at,
                            static_cast<uint32_t>(extents.size()), 24, end, 0, 48, end, 0, 64});
    PutDigest(&header, 48, tables);
    PutDigest(&header, 12, header);
    std::string geometry;
    Put<uint32_t>(&geometry, {0x616c4467, 52});
    geometry.append(32, 0);
    Put<uint32_t>(&geometry, {metadata_size, 2, 4096});
    PutDigest(&geometry, 8, geometry);

    std::string super(12288 + 4 * metadata_size, '\0');
    for (const size_t at : {4096, 8192}) super.replace(at, geometry.size(), geometry);
    for (size_t i = 0; i < 4; ++i) {
        super.replace(12288 + i * metadata_size, header.size() + end, header + tables);
    }
    super.resize((super.size() + 511) / 512 * 512);
    return super;
}

TEST_F(ImageReaderTest, ASuperImageIsItsPartitions) {
    Write(Path("/files/build.prop"), "from=super\n");
    MakeExt4("");
    const std::string raw = ReadFile(Path("/raw"));
    // The second half of the image lies before the first.
    constexpr uint64_t kFirst = (12288 + 4 * 65536) / 512;
    const uint64_t half = raw.size() / 1024;
    std::string super =
            SuperHead({{"my_$(id>pwn)", 0, 2}, {"empty_b", 2, 0}, {"zeros", 2, 1}},
                      {{half, 0, kFirst + half, 0}, {half, 0, kFirst, 0}, {1 << 20, 1, 0, 0}});
    super += raw.substr(half * 512) + raw.substr(0, half * 512);
    // The first geometry and the first slot's metadata are damaged.
    super[4096 + 8] ^= 1;
    super[12288 + 130] ^= 1;
    Write(Path("/super.img"), super);
    Shell("img2simg super.img sparse");
    for (const char* name : {"super.img", "sparse"}) {
        for (const char slot : {'a', 'b'}) {
            const Reader reader = Open(name, slot);
            ASSERT_EQ(reader.contained().volumes.size(), 3u);
            EXPECT_EQ(reader.contained().volumes[0].name, "my_$(id>pwn)");
            EXPECT_EQ(reader.contained().volumes[0].size, raw.size());
            EXPECT_EQ(reader.contained().volumes[1].size, 0u);
            EXPECT_EQ(reader.contained().volumes[2].size, uint64_t{512} << 20);
            const auto system = reader.Open(0);
            EXPECT_EQ(system->Read(Find(*system, "build.prop"), 0, 100), "from=super\n");
            EXPECT_THAT([&] { reader.Open(1); }, ThrowsMessage<Damage>(StartsWith("neither")));
            EXPECT_THAT([&] { reader.Open(2); }, ThrowsMessage<Damage>(StartsWith("neither")));
            EXPECT_THROW(reader.Open(3), Damage);
        }
    }
    super[12288 + 2 * 65536 + 130] ^= 1;
    EXPECT_EQ(DamageOf(super), "a super partition whose metadata have a wrong checksum");
    super[8192 + 8] ^= 1;
    EXPECT_EQ(DamageOf(super), "a super partition with a wrong checksum");
}

TEST(SuperTest, DamageAndTooMuchAreRefused) {
    const auto damage_of = [](const std::string& bytes) -> std::string {
        const TextSource source(bytes);
        try {
            const auto super = images::Super::Open(source, 'a');
            for (size_t i = 0; i < super->volumes().size(); ++i) {
                images::ReadBytes(*super->OpenVolume(i), 0, 512);
            }
        } catch (const Damage& damage) {
            return damage.what();
        }
        return "none";
    };
    const std::vector<SuperExtent> one = {{1, 0, 0, 0}};
    constexpr uint64_t kMost = UINT64_MAX / 512;
    const struct {
        std::string image;
        std::string damage;
    } cases[] = {
            {SuperHead({{"p", 0, 1}}, one), "none"},
            {SuperHead({{"p", 0, 2}}, one), "metadata contradict each other"},
            {SuperHead({{"p", UINT32_MAX, 1}}, one), "metadata contradict each other"},
            {SuperHead({{"p", 0, 1}}, {{kMost + 2, 0, 0, 0}}), "larger than any file"},
            {SuperHead({{"p", 0, 2}}, {{kMost / 2, 1, 0, 0}, {kMost / 2, 1, 0, 0}}),
             "larger than any file"},
            {SuperHead({{"p", 0, 1}}, {{1, 0, kMost + 1, 0}}), "larger than any file"},
            {SuperHead({{"p", 0, 1}}, {{1, 0, 1 << 20, 0}}), "truncated"},
            {SuperHead({{"p", 0, 1}}, {{1, 0, 0, 1}}), "several block devices"},
            {SuperHead({{"p", 0, 1}}, {{1, 2, 0, 0}}), "several block devices"},
            {SuperHead(std::vector<Partition>(1025, {"p", 0, 1}), one),
             "more than 1024 partitions"},
            {SuperHead(std::vector<Partition>(20'000, {"p", 0, 100'000}),
                       std::vector<SuperExtent>(100'000, one[0]), 4 << 20),
             "more than 1024 partitions"},
            {SuperHead(std::vector<Partition>(1000, {"p", 0, 100'000}),
                       std::vector<SuperExtent>(100'000, one[0]), 4 << 20),
             "more than 65536 extents"},
            {SuperHead({{"p", 0, 1}}, one, 17 << 20), "more than 16777216 bytes of metadata"},
            {SuperHead({{"p", 0, 1}}, one).substr(0, 12400), "truncated"},
    };
    for (const auto& [image, damage] : cases) EXPECT_THAT(damage_of(image), HasSubstr(damage));
}

class CountingSource : public images::FileSource {
  public:
    using FileSource::FileSource;
    void Read(uint64_t offset, void* to, size_t size) const override {
        FileSource::Read(offset, to, size);
        read += size;
    }
    mutable size_t read = 0;
};

// The cost of a file does not depend on the rest of the image.
TEST_F(ImageReaderTest, NothingElseIsReadOfALargeImage) {
    Write(Path("/files/etc/build.prop"), std::string(10'000, 'p'));
    const auto cost = [this](const std::string& size) {
        MakeExt4("-b 4096 -N 32768", size);
        const unique_fd file(open(Path("/raw").c_str(), O_RDONLY));
        const CountingSource source(file.get());
        const auto system = images::OpenExt4(source);
        EXPECT_EQ(system->Read(Find(*system, "etc/build.prop"), 0, 20'000).size(), 10'000u);
        return source.read;
    };
    const size_t small = cost("16M");
    for (int i = 0; i < 1'000; ++i) {
        Write(Path("/files/other/" + std::to_string(i % 10) + "/" + std::to_string(i)), "");
    }
    Shell("mkdir files/apps; yes | head -c 50000000 >files/apps/app");
    EXPECT_EQ(cost("400M"), small);
    EXPECT_LT(small, 100'000u);
    EXPECT_EQ(Everything(*Open("raw").Open(0)).size(), 1'017u);
}

// Tries forbidden actions in a confined process. Returns those that are possible, one word each.
std::string PossibleWhenConfined(uid_t user) {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    const unique_fd parent(ends[0]), child(ends[1]);
    const unique_fd image(open("/proc/self/exe", O_RDONLY)), other(open("/dev/zero", O_RDONLY));
    const pid_t pid = fork();
    if (pid == 0) {
        const pid_t tester = getppid();
        if (user != geteuid() && setresuid(user, user, user) != 0) _exit(1);
        if (!images::Confine({{image.get()}, child.get(), -1})) _exit(2);
        std::string possible;
        const auto attempt = [&possible](const char* name, long result) {
            if (result != -1 || errno != EPERM) possible += std::string(name) + " ";
        };
        char byte = 0;
        attempt("pread-image", pread(images::kFirstImage, &byte, 1, 0));
        attempt("pread-other", pread(images::kControl, &byte, 1, 0));
        attempt("read", read(images::kFirstImage, &byte, 1));
        attempt("write", write(STDERR_FILENO, "", 0));
        attempt("open", open("/dev/null", O_RDONLY));
        attempt("openat2", syscall(SYS_openat2, AT_FDCWD, "/", nullptr, 0));
        attempt("stat", access("/", F_OK));
        attempt("unlink", unlink("/nonexistent"));
        attempt("socket", socket(AF_INET, SOCK_STREAM, 0));
        attempt("connect", connect(images::kControl, nullptr, 0));
        attempt("execve", execl("/bin/true", "true", nullptr));
        attempt("fork", syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0));
        attempt("clone3", syscall(SYS_clone3, nullptr, 0));
        attempt("kill", kill(tester, 0));
        attempt("tgkill", syscall(SYS_tgkill, tester, tester, 0));
        attempt("ptrace", syscall(SYS_ptrace, 16, tester, 0, 0));
        attempt("process_vm_readv", syscall(SYS_process_vm_readv, tester, nullptr, 0, 0, 0, 0));
        attempt("prctl", prctl(PR_SET_DUMPABLE, 1));
        attempt("prlimit", syscall(SYS_prlimit64, 0, 0, nullptr, nullptr));
        attempt("unshare", unshare(0));
        attempt("mount", syscall(SYS_mount, 0, 0, 0, 0, 0));
        attempt("ioctl", syscall(SYS_ioctl, images::kFirstImage, 0x5413, 0));
        attempt("fcntl", fcntl(images::kFirstImage, F_GETFD));
        attempt("dup", dup(images::kFirstImage));
        attempt("memfd_create", syscall(SYS_memfd_create, "", 0));
        attempt("io_uring_setup", syscall(SYS_io_uring_setup, 1, nullptr));
        attempt("bpf", syscall(SYS_bpf, 0, nullptr, 0));
        attempt("userfaultfd", syscall(SYS_userfaultfd, 0));
        attempt("shmget", syscall(SYS_shmget, 0, 4096, 01600));
        attempt("an unknown call", syscall(100'000));
#ifdef __x86_64__
        attempt("a call of another table", syscall(0x40000000 | SYS_getpid));
#endif
        const auto map = [](size_t size, int protection) {
            return reinterpret_cast<long>(
                    mmap(nullptr, size, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        };
        attempt("mmap", map(4096, PROT_READ));
        attempt("mmap-code", map(4096, PROT_READ | PROT_EXEC));
        errno = 0;
        if (map(size_t{1} << 30, PROT_READ) != -1) possible += "mmap-much ";
        char* page = reinterpret_cast<char*>(map(4096, PROT_READ | PROT_WRITE));
        attempt("mprotect-code", mprotect(page, 4096, PROT_READ | PROT_EXEC));
        iovec data = {possible.data(), possible.size()};
        msghdr message = {};
        message.msg_iov = &data;
        message.msg_iovlen = 1;
        sendmsg(images::kControl, &message, 0);
        _exit(0);
    }
    char possible[1000] = {};
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
    EXPECT_GT(recv(parent.get(), possible, sizeof(possible) - 1, MSG_DONTWAIT), 0);
    return possible;
}

TEST(ConfineTest, LeavesNothingButTheImageMemoryAndSockets) {
    if (kIsSanitized) GTEST_SKIP() << "the sanitizer's memory has no limit";
    EXPECT_EQ(PossibleWhenConfined(geteuid()), "pread-image mmap ");
    if (geteuid() != 0) return;
    EXPECT_EQ(PossibleWhenConfined(kNobody), "pread-image mmap ");
}

// Returns the children of a process.
std::vector<pid_t> Children(pid_t parent) {
    std::vector<pid_t> children;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const std::string status = ReadFile(entry.path() / "stat");
        const size_t name_end = status.rfind(')');
        if (name_end == std::string::npos) continue;
        char state;
        int its_parent = 0;
        sscanf(status.c_str() + name_end + 1, " %c %d", &state, &its_parent);
        if (its_parent == parent) children.push_back(atoi(status.c_str()));
    }
    return children;
}

class AskersTest : public ImageReaderTest {
  protected:
    AskersTest() {
        for (int i = 0; i < 200'000; ++i) content_ += std::to_string(i) + "\n";
        Write(Path("/files/large"), content_);
        for (int i = 0; i < 4; ++i) Write(Path("/files/" + std::to_string(i)), std::to_string(i));
        MakeExt4("", "16M");
    }

    std::string content_;
};

TEST_F(AskersTest, AProcessThatIsKilledDisturbsNobody) {
    const Reader reader = Open("raw");
    const auto system = reader.Open(0);
    const uint64_t large = Find(*system, "large");
    for (int i = 0; i < 30; ++i) {
        const pid_t pid = fork();
        if (pid == 0) {
            while (true) system->Read(large, 0, content_.size());
        }
        usleep(i * 150);
        kill(pid, SIGKILL);
        ASSERT_EQ(system->Read(large, 0, content_.size()), content_);
        int status = 0;
        waitpid(pid, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status));
    }
    EXPECT_EQ(Children(getpid()).size(), 1u);
}

TEST_F(AskersTest, ThreadsAndTheirForksAskAtTheSameTime) {
    const Reader reader = Open("raw");
    const auto system = reader.Open(0);
    std::atomic<bool> stop = false;
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            const uint64_t node = Find(*system, std::to_string(i));
            while (!stop) {
                wrong += system->Read(node, 0, 10) != std::to_string(i);
                usleep(10);
            }
        });
    }
    // The threads may hold the lock of the connection that these processes inherit.
    for (int i = 0; i < 20; ++i) {
        const pid_t pid = fork();
        if (pid == 0) {
            alarm(20);
            bool is_right = system->Read(Find(*system, "3"), 0, 10) == "3";
            const pid_t grandchild = fork();
            is_right = is_right && system->Read(Find(*system, "2"), 0, 10) == "2";
            if (grandchild == 0) _exit(is_right ? 0 : 1);
            int status = 0;
            waitpid(grandchild, &status, 0);
            _exit(is_right ? status : 1);
        }
        int status = 0;
        waitpid(pid, &status, 0);
        EXPECT_EQ(status, 0);
    }
    stop = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST_F(AskersTest, AReaderThatDiesSaysHow) {
    const Reader reader = Open("raw");
    const auto system = reader.Open(0);
    const auto children = Children(getpid());
    ASSERT_EQ(children.size(), 1u);
    kill(children[0], SIGSEGV);
    for (int i = 0; i < 2; ++i) {
        EXPECT_THAT([&] { system->Look(system->root()); },
                    ThrowsMessage<Damage>(StartsWith("the process that reads it ended: Seg")));
    }
}

TEST_F(AskersTest, AReaderEndsWithTheLastWhoCanAsk) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const pid_t pid = fork();
    if (pid == 0) {
        const Reader reader = Open("raw");
        const auto system = reader.Open(0);
        if (fork() == 0) {
            usleep(100'000);
            // The only client now, and still answered.
            _exit(system->Read(Find(*system, "1"), 0, 10) == "1" ? 0 : 1);
        }
        kill(getpid(), SIGKILL);
    }
    alarm(20);
    int status, ended = 0;
    while (wait(&status) != -1) ended += status == 0;
    alarm(0);
    EXPECT_EQ(ended, 2);
    prctl(PR_SET_CHILD_SUBREAPER, 0);
}

// Returns a reply as a reader could send it that an image has taken over.
std::string Reply(uint64_t size, const std::string& bytes) {
    const images::ReplyHeader header = {images::Outcome::kDone, 0, size};
    return std::string(reinterpret_cast<const char*>(&header), sizeof(header)) + bytes;
}

std::string List(std::initializer_list<const char*> names) {
    std::string list;
    for (const char* name : names) {
        images::PutText(&list, name);
        images::PutNumber(&list, 1);
    }
    return Reply(list.size(), list);
}

std::string (*g_answer)(const images::Request& request);

void ServeNonsense(const images::Descriptors& descriptors, char) {
    const int control = descriptors.control;
    alarm(20);
    while (true) {
        char byte, space[CMSG_SPACE(sizeof(int))];
        iovec data = {&byte, 1};
        msghdr message = {};
        message.msg_iov = &data;
        message.msg_iovlen = 1;
        message.msg_control = space;
        message.msg_controllen = sizeof(space);
        if (recvmsg(control, &message, 0) <= 0) return;
        int channel;
        memcpy(&channel, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof(channel));
        images::Request request;
        while (recv(channel, &request, sizeof(request), 0) > 0) {
            const bool is_first = request.question == images::Question::kContents;
            const bool is_second = request.question == images::Question::kRoot;
            const std::string reply = is_first    ? Reply(32, std::string(32, '\0'))
                                      : is_second ? Reply(8, std::string(8, '\1'))
                                                  : g_answer(request);
            if (reply.empty()) return;
            send(channel, reply.data(), reply.size(), 0);
        }
    }
}

TEST(HostileReaderTest, EveryAnswerIsChecked) {
    using images::Request;
    const auto list = [](const FileSystem& system) { system.List(1); };
    const auto look = [](const FileSystem& system) { system.Look(1); };
    const auto read = [](const FileSystem& system) { system.Read(1, 0, 50); };
    const auto target = [](const FileSystem& system) { system.Target(1); };
    const struct {
        std::string (*answer)(const Request& request);
        std::vector<void (*)(const FileSystem& system)> questions;
    } cases[] = {
            {[](const Request&) { return std::string(); }, {list, look, read, target}},  // ends
            {[](const Request&) { return std::string("x"); }, {list, look, read, target}},
            {[](const Request&) { return Reply(UINT64_MAX, "x"); }, {list, look, read, target}},
            {[](const Request&) { return Reply(100, "x"); }, {list, look, read, target}},
            {[](const Request& request) {
                 return Reply(request.size + 1, std::string(request.size + 1, 'x'));
             },
             {list, look, read, target}},
            {[](const Request&) { return Reply(UINT64_MAX, std::string(65536, 'x')); },
             {list, look, target}},
            {[](const Request&) { return Reply(0, ""); }, {look, target}},
            {[](const Request&) { return Reply(16, std::string(16, '\xff')); }, {list, look}},
            {[](const Request&) {
                 return List({"a", "b/c"});
             },
             {list}},
            {[](const Request&) {
                 return List({"a", "a"});
             },
             {list}},
            {[](const Request&) { return List({".."}); }, {list}},
            {[](const Request&) { return Reply(sizeof(Node), std::string(sizeof(Node), '\xff')); },
             {look}},
            {[](const Request&) { return Reply(2, std::string("a\0", 2)); }, {target}},
            {[](const Request&) { return Reply(5000, std::string(5000, 'x')); }, {target}},
    };
    for (const auto& [answer, questions] : cases) {
        g_answer = answer;
        for (const auto question : questions) {
            const Reader reader(Only(unique_fd(open("/dev/null", O_RDONLY))), 'a', 1,
                                ServeNonsense);
            const auto system = reader.Open(0);
            EXPECT_THROW(question(*system), Damage) << answer({}).size() << " bytes";
        }
    }
}

template <int kStatus>
void DoNotServe(const images::Descriptors&, char) {
    _exit(kStatus);
}

TEST(HostileReaderTest, AProcessThatCannotServeIsNoDamage) {
    const struct {
        images::ServeFunction* serve;
        std::string why;
    } cases[] = {
            {DoNotServe<images::kNotLoaded>, "libextprop_decoders.so cannot be loaded"},
            {DoNotServe<images::kNotConfined>, "the reading process cannot give up its rights"},
    };
    for (const auto& [serve, why] : cases) {
        try {
            Reader(Only(unique_fd(open("/dev/null", O_RDONLY))), 'a', 1, serve);
            ADD_FAILURE() << why;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), "images cannot be read: " + why);
        }
    }
}

}  // namespace
