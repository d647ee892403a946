// Partition images in a device directory, for root and for an ordinary user.

#include "images.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android-base/file.h>

#include "sandbox.h"
#include "snapshot.h"

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
    const sandbox::Snapshot device = sandbox::TakeSnapshot(Path("/d"));

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
    EXPECT_TRUE(Changes(device, sandbox::TakeSnapshot(Path("/d"))).empty());
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
            {sparse.substr(0, 60), "simg2img failed: .+"},
            {ext4.substr(0, 2048) + std::string(2'095'104, '\xff'),
             "debugfs failed: .+"},
            {sparse, "simg2img is missing, install android-sdk-libsparse-utils"},
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

INSTANTIATE_TEST_SUITE_P(Users, ImagesTest, testing::Values(kRoot, kNobody), [](const auto& info) {
    return info.param == kRoot ? "Root" : "OrdinaryUser";
});

}  // namespace
