// The boot logo's copy into the splash partition: slot 10 with its trigger words.

#include <errno.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <android-base/strings.h>
#include <gtest/gtest.h>

#include "device.h"

namespace {

constexpr char kSplash[] = "/dev/block/by-name/splash_odm";
constexpr char kLogoImg[] = "/my_company/media/logo/logo.img";
constexpr char kCompanyDate[] = "ro.tesvo.image.my_company.date.utc";
constexpr char kCopiedDate[] = "persist.record.my_company.date.forlogo";
constexpr char kFromBoot[] = "FromCompanyBoot";
constexpr char kFailed[] = "E Unable to write logo copy info file";

bool g_partitions_fail = false;

bool PartitionFails(int fd) {
    struct stat status;
    if (!g_partitions_fail || fstat(fd, &status) != 0 || !S_ISBLK(status.st_mode)) return false;
    errno = EIO;
    return true;
}

class LogoTest : public testing::Test {
  protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "loop devices take root";
    }

    void AttachSplash(size_t size) {
        device_.Write(kSplash, std::string(size, '.'));
        device_.AttachBlockDevice(kSplash);
    }

    // Performs the command of which this is the end and returns its log; nothing is handed on.
    static std::string Trigger(Init& init, const std::string& end) {
        init.TakeLog();
        init.extension->loadSimSwitchOverrideProperties("triggerLogoCopy" + end, Init::Callback);
        EXPECT_TRUE(init.TakeCalls().empty());
        return android::base::Join(init.TakeLog(), "\n");
    }

    Device device_;
};

TEST_F(LogoTest, CompanyTriggersCopyByImageDate) {
    AttachSplash(1024);
    device_.Write(kLogoImg, "img");
    device_.Write("/my_company/media/logo/logo.bin", "binary");
    device_.Boot([](Init& init) {
        EXPECT_EQ(Trigger(init, kFromBoot), "I Missing component information");
        init.Set(kCompanyDate, "100");
        EXPECT_EQ(Trigger(init, kFromBoot), "");
        EXPECT_EQ(init.Get(kCopiedDate), "100");
        EXPECT_EQ(Trigger(init, kFromBoot), "I Logo copied, no need to process again");
        unlink(kLogoImg);
        EXPECT_EQ(Trigger(init, "FromCompany"), "");
        init.Set(kCompanyDate, "101");
        g_partitions_fail = true;
        EXPECT_EQ(Trigger(init, kFromBoot), kFailed);
        EXPECT_EQ(init.Get(kCopiedDate), "100");
    });
    EXPECT_EQ(device_.Read(kSplash), "binary" + std::string(1018, '.'));
}

TEST_F(LogoTest, PathTriggerCopiesWhatFitsWithoutARecord) {
    device_.MakeDirectory("/directory");
    device_.Write("/data/logo file", "chosen");
    device_.Write("/exact", std::string(1024, 'x'));
    device_.Write("/more", std::string(1025, 'y'));
    device_.Write("/empty", "");
    device_.Boot([](Init& init) {
        EXPECT_EQ(Trigger(init, "/exact"), "I Can not access the target Partition");
    });
    AttachSplash(1024);
    const std::string chosen = "chosen" + std::string(1018, '.');
    const struct {
        std::string end, log, splash;
    } cases[] = {{":/data/none", "I No logo resource found", std::string(1024, '.')},
                 {"FromCompany2/data/logo file", "", chosen},
                 {"/more", "I Logo resource is too large", chosen},
                 {"/empty", "", chosen},
                 {"/directory", kFailed, chosen},
                 {"/exact", "", std::string(1024, 'x')}};
    for (const auto& known : cases) {
        device_.Boot([&](Init& init) {
            // A directory has no end to measure here; on some file systems its end is far away.
            ASSERT_EQ(mount("tmpfs", "/directory", "tmpfs", 0, nullptr), 0);
            init.Set(kCompanyDate, "100");
            EXPECT_EQ(Trigger(init, known.end), known.log);
            EXPECT_EQ(init.Get(kCopiedDate), "(unset)");
        });
        EXPECT_EQ(device_.Read(kSplash), known.splash) << known.end;
    }
}

}  // namespace

// A worn-out partition cannot be had otherwise: while the flag is set, writes to block devices
// fail.
extern "C" ssize_t write(int fd, const void* data, size_t size) {
    return PartitionFails(fd) ? -1 : syscall(SYS_write, fd, data, size);
}

extern "C" ssize_t writev(int fd, const iovec* parts, int count) {
    return PartitionFails(fd) ? -1 : syscall(SYS_writev, fd, parts, count);
}
