// Partition images in a device directory, for root and for an ordinary user.

#include "images.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android-base/file.h>

#include "sandbox.h"

namespace {

namespace fs = std::filesystem;
using sandbox::Layer;
using sandbox::Sandbox;
using testing::MatchesRegex;
using testing::StartsWith;

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

// What an attempt to write the file meets.
std::string WriteError(const std::string& path) {
    return open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644) == -1 ? strerror(errno)
                                                                          : "(written)";
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

    static void Shell(const std::string& command) {
        ASSERT_EQ(system(("{ PATH=$PATH:/usr/sbin; " + command + "; } >/dev/null 2>&1").c_str()), 0)
                << command;
    }

    // Makes an image of the device directory whose build.prop says `content`.
    void MakeImage(const std::string& format, const std::string& name, const std::string& content) {
        const std::string files = Path("/files"), image = Path("/d/" + name), raw = Path("/raw");
        Write(files + "/build.prop", content);
        Write(files + "/private/key", "k");
        Write(files + "/bulk", std::string(300'000, 'b'));
        chmod((files + "/private/key").c_str(), 0646);
        if (geteuid() == 0) {
            ASSERT_EQ(chown((files + "/private/key").c_str(), 1000, 2000), 0);
        }
        if (format == "ext4") Shell("mkfs.ext4 -q -F -d " + files + " " + image + " 2M");
        if (format == "erofs") Shell("mkfs.erofs -zlz4hc " + image + " " + files);
        if (format == "sparse ext4") {
            Shell("mkfs.ext4 -q -F -d " + files + " " + raw + " 2M && img2simg " + raw + " " +
                  image);
        }
        if (format == "sparse erofs") {
            Shell("mkfs.erofs " + raw + " " + files + " && img2simg " + raw + " " + image);
        }
        fs::remove_all(files);
        fs::remove(raw);
    }

    // Writing takes that the directories are the user's.
    void GiveDeviceToUser() {
        const std::string user = std::to_string(GetParam());
        if (geteuid() == 0) Shell("chown -R " + user + ":" + user + " " + Path("/d"));
    }

    // Runs the checks in a process of the user, and fails if one of them does.
    template <typename Checks>
    void As(uid_t user, const Checks& checks) {
        const pid_t pid = fork();
        if (pid == 0) {
            // A process that changed its user may not write its maps until it is dumpable again.
            if (geteuid() == 0 && user != kRoot) {
                EXPECT_EQ(setgid(user) | setuid(user) | prctl(PR_SET_DUMPABLE, 1), 0);
            }
            try {
                checks();
            } catch (const std::exception& error) {
                ADD_FAILURE() << error.what();
            }
            fflush(nullptr);
            _exit(HasFailure() ? 1 : 0);
        }
        int status = 0;
        waitpid(pid, &status, 0);
        EXPECT_EQ(status, 0);
    }

    // Whether a loop device over a file of this test is left a while from now.
    bool LeavesLoopDevices() const {
        for (int tries = 0; tries < 100; ++tries) {
            if (LoopDevices() == 0) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return true;
    }

    int LoopDevices() const {
        int count = 0;
        for (const auto& entry : fs::directory_iterator("/sys/block")) {
            const std::string file = Read(entry.path() / "loop/backing_file");
            count += file.find(fs::path(directory_.path).filename()) != std::string::npos;
        }
        return count;
    }

    TemporaryDir directory_;
};

TEST_P(ImagesTest, EachFormatIsShownReadOnlyAtItsPlace) {
    MakeImage("ext4", "odm.img", "odm");
    MakeImage("erofs", "system_ext.img", "ext");
    MakeImage("sparse ext4", "my_region.img", "region");
    MakeImage("sparse erofs", "my_carrier.img", "carrier");
    MakeImage("erofs", "my_company.img", "company");
    fs::rename(Path("/d/my_company.img"), Path("/elsewhere"));
    fs::create_symlink("../elsewhere", Path("/d/my_company.img"));
    Write(Path("/d/my_company/build.prop"), "own");
    Write(Path("/d/odm/covered"), "");
    Write(Path("/d/mnt/vendor/reserve/key"), "old");
    Write(Path("/d/boot.img"), "of no partition that is shown");
    Write(Path("/d/deep/my_deep.img"), "");
    GiveDeviceToUser();
    const sandbox::Snapshot device = sandbox::TakeSnapshot(Path("/d"));

    for (const Layer layer : {Layer::kOverlayOrCopy, Layer::kCopy}) {
        As(GetParam(), [&] {
            const Sandbox root(Path("/d"), layer);
            const sandbox::Snapshot before = root.TakeSnapshot();
            EXPECT_TRUE(root.Run([] {
                                EXPECT_EQ(Read("/odm/build.prop"), "odm");
                                EXPECT_EQ(Read("/odm/covered"), "(missing)");
                                EXPECT_EQ(Read("/odm/bulk"), std::string(300'000, 'b'));
                                EXPECT_EQ(Read("/odm/private/key"), "k");
                                EXPECT_EQ(Read("/system_ext/build.prop"), "ext");
                                EXPECT_EQ(Read("/mnt/vendor/my_region/build.prop"), "region");
                                EXPECT_EQ(Read("/my_region/build.prop"), "region");
                                EXPECT_EQ(Read("/my_carrier/build.prop"), "carrier");
                                EXPECT_EQ(Read("/mnt/vendor/my_company/build.prop"), "company");
                                EXPECT_EQ(Read("/my_company/build.prop"), "own");
                                for (const char* file :
                                     {"/odm/build.prop", "/odm/new", "/my_region/build.prop",
                                      "/mnt/vendor/my_region/new", "/my_carrier/new"}) {
                                    EXPECT_EQ(WriteError(file), "Read-only file system") << file;
                                }
                                for (const char* image : {"/odm.img", "/my_company.img"}) {
                                    EXPECT_FALSE(fs::exists(fs::symlink_status(image))) << image;
                                }
                                EXPECT_TRUE(fs::exists("/boot.img"));
                                for (const char* key :
                                     {"/odm/private/key", "/system_ext/private/key"}) {
                                    struct stat status = {};
                                    stat(key, &status);
                                    EXPECT_EQ(status.st_mode & 07777, 0646u) << key;
                                }
                                Write("/mnt/vendor/reserve/key", "new");
                                Write("/mnt/vendor/reserve/made", "");
                                return HasFailure() ? 1 : 0;
                            }).ok());
            const sandbox::Snapshot after = root.TakeSnapshot();
            EXPECT_EQ(after.count("/odm"), 1u);
            EXPECT_EQ(after.count("/odm/build.prop"), 0u);
            const auto changes = Changes(before, after);
            ASSERT_EQ(changes.size(), 2u);
            EXPECT_EQ(changes[0].path, "/mnt/vendor/reserve/key");
            EXPECT_EQ(changes[1].path, "/mnt/vendor/reserve/made");
            EXPECT_EQ(Read(root.Outside("/odm/build.prop")), "odm");
            EXPECT_EQ(LoopDevices() > 0, GetParam() == kRoot);
        });
    }
    EXPECT_FALSE(LeavesLoopDevices());
    EXPECT_TRUE(Changes(device, sandbox::TakeSnapshot(Path("/d"))).empty());
}

// A link in the device directory leads to where it leads on the phone, not on this machine.
TEST_P(ImagesTest, LinksAreThoseOfThePhone) {
    MakeImage("erofs", "odm.img", "odm");
    MakeImage("erofs", "my_stock.img", "stock");
    fs::create_directories(Path("/d/vendor/odm"));
    fs::create_symlink("/vendor/odm", Path("/d/odm"));
    fs::create_directory(Path("/target"));
    fs::create_directories(Path("/d" + Path("/target")));
    fs::create_directories(Path("/d/mnt"));
    fs::create_symlink(Path("/target"), Path("/d/mnt/vendor"));
    GiveDeviceToUser();
    As(GetParam(), [&] {
        const Sandbox root(Path("/d"));
        EXPECT_TRUE(root.Run([&] {
                            EXPECT_EQ(Read("/vendor/odm/build.prop"), "odm");
                            EXPECT_EQ(Read(Path("/target/my_stock/build.prop")), "stock");
                            return HasFailure() ? 1 : 0;
                        }).ok());
    });
    EXPECT_TRUE(fs::is_empty(Path("/target")));
}

TEST_P(ImagesTest, AnImageThatCannotBeShownIsOneErrorThatNamesIt) {
    MakeImage("ext4", "ext4", "");
    MakeImage("erofs", "erofs", "");
    MakeImage("sparse erofs", "sparse", "");
    const std::string ext4 = Read(Path("/d/ext4")), erofs = Read(Path("/d/erofs")),
                      sparse = Read(Path("/d/sparse"));
    const bool mounted = GetParam() == kRoot;
    std::string damaged_ext4 = ext4, damaged_erofs = erofs;
    damaged_ext4.replace(2048, 300'000, std::string(300'000, '\xff'));
    damaged_erofs.replace(1024 + 14, 2, "\xff\xff");  // the root's number
    const std::string unknown = "neither an ext4 nor an EROFS nor an Android sparse image";
    const struct {
        std::string content;
        std::string error;
    } cases[] = {
            {"", unknown},
            {std::string(5000, 'x'), unknown},
            {ext4.substr(0, 1'000'001), "truncated, 1000001 bytes of 2097152"},
            {erofs.substr(0, 4096), "truncated, 4096 bytes of [0-9]+"},
            {sparse.substr(0, sparse.size() / 2), "simg2img failed: Failed to read sparse file"},
            {damaged_ext4, mounted ? "cannot be mounted as ext4: .*" : "debugfs failed: .+"},
            {damaged_erofs, mounted ? "cannot be mounted as erofs: .*" : "fsck.erofs failed: .+"},
    };
    for (const auto& known : cases) {
        const std::string image = Path("/d/my_bigball.img");
        Write(image, known.content);
        As(GetParam(), [&] {
            try {
                const Sandbox root(Path("/d"));
                ADD_FAILURE() << "shown in spite of " << known.error;
            } catch (const std::runtime_error& error) {
                EXPECT_THAT(error.what(), MatchesRegex(image + ": " + known.error));
                EXPECT_EQ(std::string(error.what()).find('\n'), std::string::npos);
            }
        });
    }
    EXPECT_FALSE(LeavesLoopDevices());
}

TEST_P(ImagesTest, WhatIsMissingIsNamed) {
    const std::string image = Path("/d/odm.img");
    const auto expect_error = [&](const std::string& expected) {
        As(GetParam(), [&] {
            setenv("PATH", "/nonexistent", 1);
            try {
                const Sandbox root(Path("/d"));
                ADD_FAILURE() << "shown in spite of " << expected;
            } catch (const std::runtime_error& error) {
                EXPECT_THAT(error.what(), StartsWith(image + ": " + expected));
            }
        });
    };
    MakeImage("sparse ext4", "odm.img", "");
    expect_error("simg2img is missing, install android-sdk-libsparse-utils");
    if (GetParam() != kRoot) {
        MakeImage("erofs", "odm.img", "");
        expect_error("fsck.erofs is missing, install erofs-utils");
    }
    fs::remove(image);
    fs::create_symlink("nowhere", image);
    expect_error("No such file or directory");
    fs::remove(image);
    MakeImage("erofs", "odm.img", "");
    Write(Path("/d/odm"), "no directory");
    setenv("PATH", "/usr/bin:/bin", 1);
    As(GetParam(), [&] {
        EXPECT_THAT([&] { Sandbox(Path("/d")); },
                    testing::ThrowsMessage<std::runtime_error>(
                            StartsWith(image + ": cannot be shown at /odm: Not a directory")));
    });
}

TEST_P(ImagesTest, NothingIsLeftOfAKilledProcess) {
    if (GetParam() != kRoot) GTEST_SKIP() << "nothing but memory is taken";
    MakeImage("ext4", "odm.img", "");
    const pid_t pid = fork();
    if (pid == 0) {
        const Sandbox root(Path("/d"));
        const sandbox::Process process = root.Start([] { return pause(); });
        kill(getpid(), LoopDevices() == 1 ? SIGKILL : SIGTERM);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
    EXPECT_FALSE(LeavesLoopDevices());
}

INSTANTIATE_TEST_SUITE_P(Users, ImagesTest, testing::Values(kRoot, kNobody), [](const auto& info) {
    return info.param == kRoot ? "Root" : "OrdinaryUser";
});

}  // namespace
