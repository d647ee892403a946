// The boot logo's copy into the splash partition: slot 10 with its trigger words.

#include <errno.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device.h"

namespace {

using testing::ElementsAre;

constexpr char kSplash[] = "/dev/block/by-name/splash_odm";
constexpr char kLogoImg[] = "/my_company/media/logo/logo.img";
constexpr char kLogoBin[] = "/my_company/media/logo/logo.bin";
constexpr char kCompanyDate[] = "ro.tesvo.image.my_company.date.utc";
constexpr char kCopiedDate[] = "persist.record.my_company.date.forlogo";
constexpr char kFromBoot[] = "triggerLogoCopyFromCompanyBoot";
constexpr char kFromCompany[] = "triggerLogoCopyFromCompany";
constexpr char kFailed[] = "E Unable to write logo copy info file";
constexpr char kNoLogo[] = "I No logo resource found";
constexpr char kTooLarge[] = "I Logo resource is too large";

bool g_partitions_fail = false;

bool PartitionFails(int fd) {
    struct stat status;
    if (!g_partitions_fail || fstat(fd, &status) != 0 || !S_ISBLK(status.st_mode)) return false;
    errno = EIO;
    return true;
}

std::string Factory(size_t size) {
    return std::string(size, '.');
}

class LogoTest : public testing::Test {
  protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "loop devices take root";
    }

    void AttachSplash(size_t size) {
        device_.Write(kSplash, Factory(size));
        device_.AttachBlockDevice(kSplash);
    }

    // Performs the command and returns its log, calling nothing back.
    static std::vector<std::string> Trigger(Init& init, const std::string& command) {
        init.TakeLog();
        init.extension->loadSimSwitchOverrideProperties(command, Init::Callback);
        EXPECT_TRUE(init.TakeCalls().empty());
        return init.TakeLog();
    }

    Device device_;
};

TEST_F(LogoTest, CompanyTriggersCopyByImageDate) {
    AttachSplash(1024);
    device_.Write(kLogoImg, "img");
    device_.Write(kLogoBin, "binary");
    device_.Boot([](Init& init) {
        EXPECT_THAT(Trigger(init, kFromBoot), ElementsAre("I Missing component information"));
        init.Set(kCompanyDate, "100");
        EXPECT_THAT(Trigger(init, kFromBoot), ElementsAre());
        EXPECT_EQ(init.Get(kCopiedDate), "100");
        EXPECT_THAT(Trigger(init, kFromBoot),
                    ElementsAre("I Logo copied, no need to process again"));
        unlink(kLogoImg);
        EXPECT_THAT(Trigger(init, kFromCompany), ElementsAre());
    });
    EXPECT_EQ(device_.Read(kSplash), "binary" + Factory(1018));

    device_.Boot([](Init& init) {
        init.Set(kCompanyDate, "101");
        init.Set(kCopiedDate, "100");
        unlink(kLogoBin);
        EXPECT_THAT(Trigger(init, kFromBoot), ElementsAre(kNoLogo));
        EXPECT_EQ(init.Get(kCopiedDate), "100");
    });
}

TEST_F(LogoTest, PathTriggerCopiesAnyFileWithoutARecord) {
    AttachSplash(1024);
    device_.Write("/data/logo file", "chosen");
    device_.Write(kLogoImg, "img");
    device_.Boot([](Init& init) {
        init.Set(kCompanyDate, "100");
        EXPECT_THAT(Trigger(init, "triggerLogoCopy"), ElementsAre(kNoLogo));
        EXPECT_THAT(Trigger(init, "triggerLogoCopy:/data/none"), ElementsAre(kNoLogo));
        EXPECT_THAT(Trigger(init, "triggerLogoCopyFromCompany2/data/logo file"), ElementsAre());
        EXPECT_EQ(init.Get(kCopiedDate), "(unset)");
    });
    EXPECT_EQ(device_.Read(kSplash), "chosen" + Factory(1018));
}

TEST_F(LogoTest, PartitionSizeIsTheLimit) {
    AttachSplash(1024);
    device_.Write("/exact", std::string(1024, 'x'));
    device_.Write("/more", std::string(1025, 'y'));
    device_.Write("/empty", "");
    device_.Boot([](Init& init) {
        EXPECT_THAT(Trigger(init, "triggerLogoCopy/more"), ElementsAre(kTooLarge));
        EXPECT_THAT(Trigger(init, "triggerLogoCopy/exact"), ElementsAre());
        EXPECT_THAT(Trigger(init, "triggerLogoCopy/empty"), ElementsAre());
    });
    EXPECT_EQ(device_.Read(kSplash), std::string(1024, 'x'));
}

TEST_F(LogoTest, HostileSourcesAndPartitions) {
    device_.Write("/logo", "logo");
    device_.Write("/empty", "");
    device_.MakeDirectory("/directory");
    device_.Boot([](Init& init) {
        EXPECT_THAT(Trigger(init, "triggerLogoCopy/logo"),
                    ElementsAre("I Can not access the target Partition"));
    });
    AttachSplash(1024);
    device_.Boot([](Init& init) {
        // A directory has no end to measure here; on some file systems its end is far away.
        ASSERT_EQ(mount("tmpfs", "/directory", "tmpfs", 0, nullptr), 0);
        EXPECT_THAT(Trigger(init, "triggerLogoCopy/directory"), ElementsAre(kFailed));

        // Opened, measured, and then not to be read.
        ASSERT_EQ(mkdir("/proc", 0755), 0);
        ASSERT_EQ(mount("proc", "/proc", "proc", 0, nullptr), 0);
        EXPECT_THAT(Trigger(init, "triggerLogoCopy/proc/self/mem"), ElementsAre(kFailed));

        // A partition that cannot be opened for output is passed over in silence.
        ASSERT_EQ(umount2(kSplash, MNT_DETACH), 0);
        ASSERT_EQ(unlink(kSplash), 0);
        ASSERT_EQ(mkdir(kSplash, 0755), 0);
        EXPECT_THAT(Trigger(init, "triggerLogoCopy/logo"), ElementsAre());
        ASSERT_EQ(rmdir(kSplash), 0);

        // One without a single byte.
        ASSERT_EQ(symlink("/empty", kSplash), 0);
        EXPECT_THAT(Trigger(init, "triggerLogoCopy/logo"), ElementsAre(kTooLarge));
    });
}

// A short logo fails when the stream is flushed, a long one in the write itself.
TEST_F(LogoTest, FailedWriteLeavesNoRecord) {
    for (size_t size : {4, 100000}) {
        Device device;
        device.Write(kSplash, Factory(102400));
        device.AttachBlockDevice(kSplash);
        device.Write(kLogoImg, std::string(size, 'x'));
        device.Boot([](Init& init) {
            init.Set(kCompanyDate, "100");
            g_partitions_fail = true;
            EXPECT_THAT(Trigger(init, kFromBoot), ElementsAre(kFailed));
            EXPECT_EQ(init.Get(kCopiedDate), "(unset)");
            g_partitions_fail = false;
            EXPECT_THAT(Trigger(init, kFromBoot), ElementsAre());
            EXPECT_EQ(init.Get(kCopiedDate), "100");
        });
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
