// Partition images in a device directory, for root and for an ordinary user.

#include "images.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <openssl/sha.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android-base/file.h>

#include "sandbox.h"

namespace {

namespace fs = std::filesystem;
using sandbox::Sandbox;
using testing::MatchesRegex;
using testing::ThrowsMessage;

constexpr uid_t kRoot = 0;
constexpr uid_t kNobody = 65534;

void Write(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

std::string Read(const std::string& path) {
    std::string content;
    return android::base::ReadFileToString(path, &content) ? content : "(missing)";
}

class ImagesTest : public testing::TestWithParam<uid_t> {
  protected:
    ImagesTest() {
        chmod(directory_.path, 0755);
        fs::create_directories(Path("/d"));
    }

    void SetUp() override {
        if (GetParam() == kRoot && geteuid() != 0) GTEST_SKIP() << "mounts take root";
    }

    std::string Path(const std::string& path) const { return directory_.path + path; }

    void Shell(const std::string& command) const {
        const std::string line = "{ PATH=$PATH:/usr/sbin; cd " + Path("") + "; " + command + "; }";
        ASSERT_EQ(system((line + " >/dev/null 2>&1").c_str()), 0) << command;
    }

    // Makes an image of the device directory whose build.prop says `content`.
    void MakeImage(const std::string& format, const std::string& name, const std::string& content) {
        Write(Path("/files/build.prop"), content);
        Write(Path("/files/private/key"), "k");
        Write(Path("/files/bulk"), std::string(300'000, 'b'));
        Shell("chmod 0646 files/private/key");
        if (geteuid() == 0) Shell("chown 1000:2000 files/private/key");
        Shell(format.find("ext4") != std::string::npos ? "mkfs.ext4 -q -F -d files raw 2M"
                                                       : "mkfs.erofs -zlz4hc raw files");
        Shell((format.find("sparse") == 0 ? "img2simg raw d/" : "cp raw d/") + name);
        Shell("rm -r files raw");
    }

    // Runs the checks in a process of the user, and fails if one of them does.
    template <typename Checks>
    void AsUser(const Checks& checks) {
        // Writing takes that the directories are the user's.
        const std::string user = std::to_string(GetParam());
        if (geteuid() == 0) Shell("chown -R " + user + ":" + user + " d");
        const pid_t pid = fork();
        if (pid == 0) {
            // A process that changed its user may not write its maps until it is dumpable again.
            if (geteuid() == 0 && GetParam() != kRoot) {
                EXPECT_EQ(setgid(kNobody) | setuid(kNobody) | prctl(PR_SET_DUMPABLE, 1), 0);
            }
            EXPECT_NO_THROW(checks());
            fflush(nullptr);
            _exit(HasFailure() ? 1 : 0);
        }
        int status = 0;
        waitpid(pid, &status, 0);
        EXPECT_EQ(status, 0);
    }

    TemporaryDir directory_;
};

TEST_P(ImagesTest, EachFormatIsShownReadOnlyAtItsPlace) {
    const struct {
        const char* format;
        const char* image;
        std::string place;
    } cases[] = {
            {"ext4", "odm.img", "/vendor/odm"},
            {"erofs", "system_ext.img", "/system_ext"},
            {"sparse ext4", "my_region.img", "/mnt/vendor/my_region"},
            {"sparse erofs", "my_carrier.img", "/mnt/vendor/my_carrier"},
    };
    for (const auto& known : cases) MakeImage(known.format, known.image, known.place);
    // A link leads to where it leads on the phone, not on this machine.
    fs::create_directories(Path("/d/vendor/odm"));
    fs::create_symlink("/vendor/odm", Path("/d/odm"));
    Write(Path("/d/system_ext/covered"), "");
    Write(Path("/d/mnt/vendor/reserve/key"), "old");
    AsUser([] {});
    Shell("find d -printf '%p %M %U %G %s %T@ %l\n' | sort >before");

    AsUser([&] {
        Sandbox root(Path("/d"));
        const auto checks = [&] {
            for (const auto& [format, image, place] : cases) {
                EXPECT_EQ(Read(place + "/build.prop"), place);
                EXPECT_EQ(Read(place + "/bulk"), std::string(300'000, 'b')) << format;
                struct stat status = {};
                stat((place + "/private/key").c_str(), &status);
                EXPECT_EQ(status.st_mode & 07777, 0646u) << format;
                for (const char* file : {"/build.prop", "/new"}) {
                    EXPECT_EQ(open((place + file).c_str(), O_WRONLY | O_CREAT, 0644), -1);
                    EXPECT_EQ(errno, EROFS) << place << file;
                }
                EXPECT_FALSE(fs::exists(fs::symlink_status(std::string("/") + image)));
            }
            EXPECT_EQ(Read("/my_region/build.prop"), "/mnt/vendor/my_region");
            EXPECT_FALSE(fs::exists("/system_ext/covered"));
            Write("/mnt/vendor/reserve/key", "new");
            return HasFailure() ? 1 : 0;
        };
        EXPECT_TRUE(root.Run(checks).ok());
        const auto changes = root.TakeChanges();
        ASSERT_EQ(changes.size(), 1u);
        EXPECT_EQ(changes[0].path, "/mnt/vendor/reserve/key");
        EXPECT_EQ(Read(root.Outside("/system_ext/build.prop")), "/system_ext");
    });
    Shell("find d -printf '%p %M %U %G %s %T@ %l\n' | sort | cmp - before");
}

TEST_P(ImagesTest, AnImageThatCannotBeShownIsOneErrorThatNamesIt) {
    MakeImage("ext4", "ext4", "");
    MakeImage("erofs", "erofs", "");
    MakeImage("sparse erofs", "sparse", "");
    const std::string ext4 = Read(Path("/d/ext4")), erofs = Read(Path("/d/erofs")),
                      sparse = Read(Path("/d/sparse"));
    const struct {
        std::string content;
        std::string error;
    } cases[] = {
            {std::string(5000, 'x'), "neither an ext4 nor an EROFS nor an Android sparse image"},
            {ext4.substr(0, 1'000'001), "truncated, 1000001 bytes of 2097152"},
            {erofs.substr(0, 4096), "truncated, 4096 bytes of [0-9]+"},
            {sparse.substr(0, 60), "truncated"},
            {ext4.substr(0, 2048) + std::string(2'095'104, '\xff'), "e2fsck found it damaged"},
            {ext4.substr(0, 0x10000) + std::string(0x10000, '\xff') + ext4.substr(0x20000),
             "e2fsck found it damaged"},
            {sparse, "fsck.erofs is missing, install erofs-utils"},
    };
    for (const auto& known : cases) {
        const std::string image = Path("/d/my_bigball.img");
        Write(image, known.content);
        AsUser([&] {
            if (known.error.find("missing") != std::string::npos) setenv("PATH", "/nonexistent", 1);
            EXPECT_THAT(
                    [&] { Sandbox(Path("/d")); },
                    ThrowsMessage<std::runtime_error>(MatchesRegex(image + ": " + known.error)));
        });
    }
}

TEST_P(ImagesTest, WhatIsNoFileIsAnErrorAtOnce) {
    const std::string image = Path("/d/my_bigball.img");
    const auto expect_error = [&](const std::string& error) {
        AsUser([&] {
            EXPECT_THAT([&] { Sandbox(Path("/d")); },
                        ThrowsMessage<std::runtime_error>(image + ": " + error));
        });
        fs::remove(image);
    };
    ASSERT_EQ(mkfifo(image.c_str(), 0666), 0);
    expect_error("neither a file nor a block device");
    ASSERT_EQ(mkfifo(Path("/fifo").c_str(), 0666), 0);
    fs::create_symlink(Path("/fifo"), image);
    expect_error("neither a file nor a block device");
    fs::create_symlink("/dev/zero", image);
    expect_error("neither a file nor a block device");
    fs::create_symlink("/nowhere", image);
    expect_error("cannot be opened: No such file or directory");
}

TEST_P(ImagesTest, TheSlotChoosesAndTheRestIsNamed) {
    MakeImage("ext4", "my_region_a.img", "a");
    MakeImage("erofs", "my_region_b.img", "b");
    MakeImage("ext4", "my_region.img", "none");
    MakeImage("ext4", "my_stock_b.img", "b");
    for (const char* name : {"boot.img", "vbmeta.img", "payload.bin"})
        Write(Path("/d/") + name, "");
    AsUser([&] {
        for (const std::string slot : {"a", "b"}) {
            sandbox::Options options;
            options.slot = slot[0];
            const Sandbox root(Path("/d"), options);
            EXPECT_EQ(Read(root.Outside("/my_region/build.prop")), slot);
            EXPECT_EQ(Read(root.Outside("/my_stock/build.prop")), slot == "b" ? "b" : "(missing)");
            const std::string d = Path("/d/");
            const std::string others = slot == "b" ? d + "my_region_a.img"
                                                   : d + "my_region_b.img, " + d + "my_stock_b.img";
            EXPECT_THAT(root.Notes(),
                        testing::ElementsAre(
                                d + "payload.bin is not looked into: it is an update's payload, "
                                    "which ota_extractor or payload-dumper unpacks",
                                d + "my_region.img is not read: " + d + "my_region_" + slot +
                                        ".img stands for the same partition",
                                others + ": of the other slot, not read",
                                "boot.img, vbmeta.img: named like no partition that is shown, not "
                                "read"));
        }
    });
}

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

// A super partition with logical partitions, each of two extents in the order from back to front.
std::string Super(const std::vector<std::pair<std::string, std::string>>& partitions) {
    constexpr uint32_t kMetadataSize = 65536;
    std::string content, names, extents;
    const uint64_t first_sector = 2048;
    for (uint32_t i = 0; i < partitions.size(); ++i) {
        std::string name = partitions[i].first, image = partitions[i].second;
        name.resize(36);
        names += name;
        Put<uint32_t>(&names, {1, 2 * i, 2, 0});
        const size_t half = image.size() / 1024 * 512;
        const uint64_t at = first_sector + content.size() / 512;
        content += image.substr(half) + image.substr(0, half);
        const uint64_t rest = (image.size() - half) / 512;
        for (const auto& [sectors, sector] :
             {std::pair<uint64_t, uint64_t>(half / 512, at + rest), {rest, at}}) {
            Put<uint64_t>(&extents, {sectors});
            Put<uint32_t>(&extents, {0});
            Put<uint64_t>(&extents, {sector});
            Put<uint32_t>(&extents, {0});
        }
    }
    const std::string tables = names + extents;
    std::string header;
    Put<uint32_t>(&header, {0x414c5030});
    Put<uint16_t>(&header, {10, 0});
    Put<uint32_t>(&header, {128});
    header.append(32, 0);
    Put<uint32_t>(&header, {static_cast<uint32_t>(tables.size())});
    header.append(32, 0);
    const uint32_t count = partitions.size(), end = tables.size();
    Put<uint32_t>(&header, {0, count, 52, static_cast<uint32_t>(names.size()), 2 * count, 24, end,
                            0, 48, end, 0, 64});
    PutDigest(&header, 48, tables);
    PutDigest(&header, 12, header);

    std::string geometry;
    Put<uint32_t>(&geometry, {0x616c4467, 52});
    geometry.append(32, 0);
    Put<uint32_t>(&geometry, {kMetadataSize, 2, 4096});
    PutDigest(&geometry, 8, geometry);

    std::string super(first_sector * 512, '\0');
    for (const size_t at : {4096, 8192}) super.replace(at, geometry.size(), geometry);
    for (size_t i = 0; i < 4; ++i) {
        super.replace(12288 + i * kMetadataSize, header.size() + tables.size(), header + tables);
    }
    return super + content;
}

TEST_P(ImagesTest, ASuperImageHasItsLogicalPartitionsBySlot) {
    MakeImage("ext4", "region_a", "a");
    MakeImage("erofs", "region_b", "b");
    MakeImage("ext4", "third", "odm");
    const std::string super = Super({{"my_region_a", Read(Path("/d/region_a"))},
                                     {"my_region_b", Read(Path("/d/region_b"))},
                                     {"odm_a", Read(Path("/d/third"))},
                                     {"unknown_a", std::string(512, 'x')}});
    std::string backed_up = super;
    for (const size_t broken : {4096 + 60, 4096 + 8, 12288 + 100, 12288 + 65536 + 130}) {
        backed_up[broken] ^= 1;
    }
    std::string broken = backed_up;
    broken[12288 + 2 * 65536 + 130] ^= 1;
    const std::string image = Path("/d/super.img");
    for (const bool sparse : {false, true}) {
        Write(image, backed_up);
        if (sparse) Shell("mv d/super.img raw && img2simg raw d/super.img && rm raw");
        AsUser([&] {
            for (const char slot : {'a', 'b'}) {
                sandbox::Options options;
                options.slot = slot;
                const Sandbox root(Path("/d"), options);
                EXPECT_EQ(Read(root.Outside("/my_region/build.prop")), std::string(1, slot));
                EXPECT_EQ(Read(root.Outside("/my_region/bulk")), std::string(300'000, 'b'));
                EXPECT_EQ(Read(root.Outside("/odm/build.prop")), slot == 'a' ? "odm" : "(missing)");
                const auto place = root.ImageOf("/my_region/private/key");
                ASSERT_TRUE(place);
                EXPECT_EQ(place->image, image + "(my_region_" + slot + ")");
                EXPECT_EQ(place->path, "/private/key");
                EXPECT_FALSE(root.ImageOf("/super.img"));
            }
        });
    }
    for (const std::string& bytes :
         {broken, std::string(20'000, 'x'), super.substr(0, 2'000'000)}) {
        Write(image, bytes);
        AsUser([&] {
            EXPECT_THAT([&] { Sandbox(Path("/d")); },
                        ThrowsMessage<std::runtime_error>(testing::StartsWith(image + ": ")));
        });
    }
}

// Apps make up most of an image and are nothing that a boot reads; what looks for them says so.
TEST_P(ImagesTest, WhatNoBootReadsIsLeftOut) {
    Write(Path("/files/system/app/x.prop"), "name=value\n");
    Write(Path("/files/app/x.prop"), "name=value\n");
    MakeImage("ext4", "my_stock.img", "");
    AsUser([&] {
        const Sandbox root(Path("/d"));
        EXPECT_EQ(Read(root.Outside("/my_stock/system/app/x.prop")), "name=value\n");
        EXPECT_TRUE(root.Notes().empty());
        root.Run([] { return access("/my_stock/app/x.prop", F_OK); });
        EXPECT_EQ(root.Notes().size(), 1u);
    });
}

INSTANTIATE_TEST_SUITE_P(Users, ImagesTest, testing::Values(kRoot, kNobody), [](const auto& info) {
    return info.param == kRoot ? "Root" : "OrdinaryUser";
});

}  // namespace
