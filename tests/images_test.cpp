// Partition images in a device directory, for root and for an ordinary user.

#include "images.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android-base/file.h>

#include "sandbox.h"
#include "super_image.h"

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

std::string ReadIn(const Sandbox& root, const std::string& path) {
    try {
        return root.Read(path, 1 << 20);
    } catch (const std::runtime_error&) {
        return "(missing)";
    }
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

    // Makes an image in the device directory, with a build.prop of this content.
    void MakeImage(const std::string& format, const std::string& name, const std::string& content) {
        Write(Path("/files/build.prop"), content);
        Write(Path("/files/private/key"), "k");
        Write(Path("/files/bulk"), std::string(300'000, 'b'));
        Shell("chmod 0646 files/private/key; chmod 0755 files/private; ln -s /etc/own files/link");
        if (geteuid() == 0) Shell("chown 1000:2000 files/private/key");
        Shell(format.find("ext4") != std::string::npos ? "mkfs.ext4 -q -F -d files raw 2M"
                                                       : "mkfs.erofs -Enosbcrc -zlz4hc raw files");
        Shell((format.find("sparse") == 0 ? "img2simg raw d/" : "cp raw d/") + name);
        Shell("rm -r files raw");
    }

    // Runs the checks in a process of the user, and fails if one of them fails.
    template <typename Checks>
    void AsUser(const Checks& checks) {
        // To write, the user must own the directories.
        const std::string user = std::to_string(GetParam());
        if (geteuid() == 0) Shell("chown -R " + user + ":" + user + " d");
        const pid_t pid = fork();
        if (pid == 0) {
            // A process that changed its user cannot write its ID maps until it is dumpable again.
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

// A directory that exists only in an image behaves as one of the kernel's.
void ExpectDirectory(const std::string& path) {
    std::map<std::string, fs::file_type> found;
    for (const auto& entry : fs::recursive_directory_iterator(path)) {
        found[entry.path().string().substr(path.size())] = entry.symlink_status().type();
    }
    found.erase("/lost+found");
    EXPECT_THAT(found, testing::ElementsAre(testing::Pair("/build.prop", fs::file_type::regular),
                                            testing::Pair("/bulk", fs::file_type::regular),
                                            testing::Pair("/link", fs::file_type::symlink),
                                            testing::Pair("/private", fs::file_type::directory),
                                            testing::Pair("/private/key", fs::file_type::regular)));
    DIR* directory = opendir((path + "/private").c_str());
    ASSERT_NE(directory, nullptr);
    for (int round = 0; round < 2; ++round) {
        std::string names;
        while (const dirent* entry = readdir(directory)) {
            names += std::string(entry->d_name) + std::to_string(entry->d_type) + " ";
        }
        EXPECT_EQ(names, ".4 ..4 key8 ");
        rewinddir(directory);
    }
    const int fd = dirfd(directory);
    struct stat status;
    ASSERT_EQ(fstat(fd, &status), 0);
    EXPECT_EQ(status.st_mode, S_IFDIR | 0755u);
    EXPECT_EQ(status.st_uid, 0u);
    char byte;
    EXPECT_EQ(read(fd, &byte, 1), -1);
    EXPECT_EQ(errno, EISDIR);
    ASSERT_EQ(fstatat(fd, "key", &status, 0), 0);
    EXPECT_EQ(status.st_mode, S_IFREG | 0646u);
    closedir(directory);
    EXPECT_EQ(open((path + "/build.prop").c_str(), O_RDONLY | O_DIRECTORY), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(open((path + "/link").c_str(), O_RDONLY | O_NOFOLLOW), -1);
    EXPECT_EQ(errno, ELOOP);
    std::string content;
    EXPECT_TRUE(android::base::ReadFileToString(path + "/link", &content, true));
    EXPECT_EQ(content, "root's own");
}

TEST_P(ImagesTest, EachFormatIsShownReadOnlyAtItsPlace) {
    const struct {
        const char* format;
        const char* image;
        std::string place;
    } cases[] = {
            {"ext4", "odm.img", "/vendor/odm"},
            {"erofs", "system_ext.IMG", "/system_ext"},
            {"sparse ext4", "my_region.img", "/mnt/vendor/my_region"},
            {"sparse erofs", "my_carrier.img", "/mnt/vendor/my_carrier"},
    };
    for (const auto& known : cases) MakeImage(known.format, known.image, known.place);
    // A link is resolved on the phone, not on this machine.
    fs::create_directories(Path("/d/vendor/odm"));
    fs::create_symlink("/vendor/odm", Path("/d/odm"));
    Write(Path("/d/system_ext/covered"), "");
    Write(Path("/d/mnt/vendor/reserve/key"), "old");
    Write(Path("/d/etc/own"), "root's own");
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
                ExpectDirectory(place);
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
        EXPECT_EQ(ReadIn(root, "/system_ext/build.prop"), "/system_ext");
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
            {ext4.substr(0, 1'000'001), "truncated.*"},
            {erofs.substr(0, 4096), ".*"},
            {sparse.substr(0, 60), ".*"},
            {ext4.substr(0, 2048) + std::string(2'095'104, '\xff'), ".*"},
    };
    for (const auto& known : cases) {
        SCOPED_TRACE(&known - cases);
        const std::string image = Path("/d/my_bigball.img");
        Write(image, known.content);
        const auto look_everywhere = [&] {
            const Sandbox root(Path("/d"));
            root.Run([] {
                std::error_code error;
                fs::recursive_directory_iterator entry("/my_bigball/", error), end;
                for (; !error && entry != end; entry.increment(error)) Read(entry->path());
                return 0;
            });
            root.Notes();
        };
        AsUser([&] {
            EXPECT_THAT(look_everywhere, ThrowsMessage<std::runtime_error>(
                                                 MatchesRegex(image + ": " + known.error)));
        });
    }
}

TEST_P(ImagesTest, WhatIsNoFileOfTheDevicesIsAnErrorAtOnce) {
    MakeImage("ext4", "region", "r");
    Shell("mv d/region .");
    const std::string image = Path("/d/my_bigball.img");
    const auto expect_error = [&](const std::string& error) {
        AsUser([&] {
            EXPECT_THAT([&] { Sandbox(Path("/d")); },
                        ThrowsMessage<std::runtime_error>(image + ": " + error));
        });
        fs::remove(image);
    };
    const std::string out =
            "a link that leads to no file in the device directory; --image my_bigball=FILE reads "
            "an image that lies anywhere";
    ASSERT_EQ(mkfifo(image.c_str(), 0666), 0);
    expect_error("not a file");
    fs::create_directory(image);
    expect_error("not a file");
    for (const std::string& target : {Path("/region"), std::string("../region"),
                                      std::string("/dev/zero"), std::string("my_bigball.img")}) {
        fs::create_symlink(target, image);
        expect_error(out);
    }

    // Images that the user names may be anywhere; links in the device are resolved within it.
    sandbox::Options options;
    options.images = {{"my_bigball", Path("/region")}, {"my_stock_a", Path("/none")}};
    fs::create_symlink(Path("/region"), image);
    AsUser([&] {
        EXPECT_THROW(Sandbox(Path("/d"), options), std::runtime_error);
        options.images.erase("my_stock_a");
        EXPECT_EQ(ReadIn(Sandbox(Path("/d"), options), "/my_bigball/build.prop"), "r");
        options.images["no_partition"] = Path("/region");
        EXPECT_THROW(Sandbox(Path("/d"), options), std::runtime_error);
    });
    fs::remove(image);
    fs::create_directory(Path("/d/deep"));
    fs::rename(Path("/region"), Path("/d/deep/region"));
    for (const char* target : {"deep/region", "/deep/region", "../../deep/region"}) {
        fs::create_symlink(target, image);
        AsUser([&] { EXPECT_EQ(ReadIn(Sandbox(Path("/d")), "/my_bigball/build.prop"), "r"); });
        fs::remove(image);
    }
}

// Damage is reported only where something reads it.
TEST_P(ImagesTest, DamageIsToldWhereItIsMet) {
    for (const std::string format : {"ext4", "erofs"}) {
        MakeImage(format, "my_region.img", "good");
        std::string bytes = Read(Path("/d/my_region.img"));
        const size_t name = bytes.find("key");
        ASSERT_NE(name, std::string::npos);
        bytes.replace(name, 3, "k/y");
        Write(Path("/d/my_region.img"), bytes);
        AsUser([&] {
            const Sandbox root(Path("/d"));
            EXPECT_TRUE(
                    root.Run([] { return Read("/my_region/build.prop") == "good" ? 0 : 1; }).ok());
            EXPECT_TRUE(root.Notes().empty());
            const auto look = [] {
                return access("/my_region/private/key", F_OK) == -1 && errno == EIO ? 0 : 1;
            };
            EXPECT_TRUE(root.Run(look).ok());
            EXPECT_THAT([&] { root.Notes(); },
                        ThrowsMessage<std::runtime_error>(
                                testing::StartsWith(Path("/d/my_region.img") + ": /private")));
        });
    }
}

TEST_P(ImagesTest, ADirectoryMayReplaceAFileOfAnArchive) {
    Write(Path("/d/odm/build.prop"), "");
    Shell("tar -cf d.tar -C d .");
    AsUser([&] {
        Sandbox root(Path("/d.tar"));
        const auto replace = [] {
            const char* const file = "/odm/build.prop";
            return unlink(file) == 0 && mkdir(file, 0755) == 0 ? 0 : 1;
        };
        EXPECT_TRUE(root.Run(replace).ok());
        EXPECT_EQ(root.TakeChanges().size(), 1u);
        root.CheckImages();
    });
}

TEST_P(ImagesTest, TheSlotChoosesAndTheRestIsNamed) {
    MakeImage("ext4", "my_region_a.img", "a");
    MakeImage("erofs", "my_region_b.img", "b");
    MakeImage("ext4", "my_region.img", "none");
    MakeImage("ext4", "my_stock_b.img", "b");
    for (const char* name : {"boot.img", "vbmeta.img", "old.7z"}) Write(Path("/d/") + name, "");
    AsUser([&] {
        for (const std::string slot : {"a", "b"}) {
            sandbox::Options options;
            options.slot = slot[0];
            const Sandbox root(Path("/d"), options);
            EXPECT_EQ(ReadIn(root, "/my_region/build.prop"), slot);
            EXPECT_EQ(ReadIn(root, "/my_stock/build.prop"), slot == "b" ? "b" : "(missing)");
            const std::string d = Path("/d/");
            const std::string others = slot == "b" ? d + "my_region_a.img"
                                                   : d + "my_region_b.img, " + d + "my_stock_b.img";
            EXPECT_THAT(root.Notes(),
                        testing::ElementsAre(
                                d + "old.7z is not read: it is a 7z archive, which 7z unpacks",
                                d + "my_region.img is not read: " + d + "my_region_" + slot +
                                        ".img is read for the same partition",
                                others + ": of the other slot, not read",
                                "boot.img, vbmeta.img: not read; the name must be that of a "
                                "partition, such as my_region"));
        }
    });
}

TEST_P(ImagesTest, ASuperImageHasItsLogicalPartitionsBySlot) {
    MakeImage("ext4", "region_a", "a");
    MakeImage("erofs", "region_b", "b");
    MakeImage("ext4", "third", "odm");
    const std::string super = SuperImage({{"my_region_a", Read(Path("/d/region_a"))},
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
                EXPECT_EQ(ReadIn(root, "/my_region/build.prop"), std::string(1, slot));
                EXPECT_EQ(ReadIn(root, "/my_region/bulk"), std::string(300'000, 'b'));
                EXPECT_EQ(ReadIn(root, "/odm/build.prop"), slot == 'a' ? "odm" : "(missing)");
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
            const auto look = [&] {
                const Sandbox root(Path("/d"));
                for (const char* path : {"/my_region/build.prop", "/odm/build.prop"}) {
                    ReadIn(root, path);
                }
                root.CheckImages();
            };
            EXPECT_THAT(look, ThrowsMessage<std::runtime_error>(testing::StartsWith(image)));
        });
    }
}

INSTANTIATE_TEST_SUITE_P(Users, ImagesTest, testing::Values(kRoot, kNobody), [](const auto& info) {
    return info.param == kRoot ? "Root" : "OrdinaryUser";
});

}  // namespace
