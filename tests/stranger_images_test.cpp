// Untrusted device directories and images.

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdint.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include <android-base/unique_fd.h>
#include <gmock/gmock.h>

#include "TesvoExtensionProperty/names.h"
#include "stranger.h"
#include "super_image.h"

namespace {

namespace fs = std::filesystem;
using android::base::unique_fd;
using testing::HasSubstr;
using testing::Not;

constexpr uid_t kNobody = 65534;

class StrangerImagesTest : public StrangerTest {
  protected:
    // Nothing must be left in the working directory either.
    Output RunWords(const Words& words, uid_t user = 0) {
        const auto names = [this] {
            std::set<std::string> names;
            for (const auto& entry : fs::directory_iterator(Path(""))) names.insert(entry.path());
            return names;
        };
        const std::set<std::string> before = names();
        const Output output = StrangerTest::RunWords(words, user);
        EXPECT_EQ(names(), before);
        return output;
    }

    // Makes an image of /files, and removes that directory.
    void MakeImage(const std::string& format, const std::string& path) const {
        Shell(format == "ext4" ? "mke2fs -q -t ext4 -F -O ^metadata_csum -d files raw 2M"
                               : "mkfs.erofs -E nosbcrc raw files");
        Shell("chmod -R u+rwx files; rm -r files");
        fs::rename(Path("/raw"), Path(path));
    }

    // Replaces every occurrence of a name in the image by one that no tool would write.
    void Patch(const std::string& path, const std::string& name, const std::string& other) const {
        ASSERT_EQ(name.size(), other.size());
        std::string bytes = Content(path);
        size_t count = 0;
        for (size_t at = 0; (at = bytes.find(name, at)) != std::string::npos; ++count) {
            bytes.replace(at, name.size(), other);
        }
        ASSERT_NE(count, 0u);
        Write(path, bytes);
    }

    // Makes nested directories in /d/deep. Returns the innermost.
    unique_fd MakeDeep(int levels) const {
        fs::create_directory(Path("/d/deep"));
        unique_fd at(open(Path("/d/deep").c_str(), O_RDONLY | O_DIRECTORY));
        for (int i = 0; i < levels; ++i) {
            EXPECT_EQ(mkdirat(at.get(), "d", 0755), 0);
            at.reset(openat(at.get(), "d", O_RDONLY | O_DIRECTORY));
        }
        return at;
    }

    // Boots and lints the device, as root and as an ordinary user. Expects this exit status, for 0
    // lint's 0 or 1, and these texts in the output.
    void Expect(int status, const std::string& said, const char* lint_said = nullptr) {
        for (const uid_t user : {uid_t{0}, kNobody}) {
            const Output boot = RunWords({"boot", "d"}, user), lint = RunWords({"lint", "d"}, user);
            EXPECT_EQ(boot.status, status) << boot.err;
            EXPECT_EQ(lint.status == 1 ? 0 : lint.status, status) << lint.err;
            EXPECT_THAT(boot.err, HasSubstr(said));
            EXPECT_THAT(lint.out + lint.err, HasSubstr(lint_said != nullptr ? lint_said : said));
        }
    }
};

TEST_F(StrangerImagesTest, NamesAreNoCommandsAndNoPaths) {
    const std::string none = "not read; the name must be that of a partition";
    for (const std::string name : {"my_$(id>pwn)", "my_;id>pwn", "my_`id>pwn`", "my_x y"}) {
        Write("/files/build.prop", "ro.b=2\n");
        MakeImage("ext4", "/d/" + name + ".img");
        Expect(0, name + ".img: " + none);
        const std::string image = Content("/d/" + name + ".img");
        fs::remove(Path("/d/" + name + ".img"));
        Write("/d/super.img", SuperImage({{name, image}}));
        Expect(0, "super.img(" + name + "): " + none);
        fs::remove(Path("/d/super.img"));
    }
    Write("/files/build.prop", "ro.b=2\n");
    MakeImage("ext4", "/raw.img");
    Write("/d/super.img", SuperImage({{"my_/../../../../outside/x", Content("/raw.img")}}));
    fs::remove(Path("/raw.img"));
    Expect(0, none);
    fs::remove(Path("/d/super.img"));

    // The tool runs none of these programs, so that they cannot be replaced by others.
    for (const char* tool : {"e2fsck", "debugfs", "fsck.erofs", "sh", "cp"}) {
        chmod(Write(std::string("/") + tool, "#!/bin/sh\nid >pwn\n").c_str(), 0755);
    }
    const std::string path = getenv("PATH");
    for (const char* format : {"ext4", "erofs"}) {
        Write("/files/build.prop", "ro.b=2\n");
        MakeImage(format, "/d/my_x.img");
        setenv("PATH", "", 1);
        Expect(0, "");
        setenv("PATH", path.c_str(), 1);
    }
}

TEST_F(StrangerImagesTest, EntriesAreNoPathsOutside) {
    const struct {
        const char* format;
        std::string entry;
        int status;
    } rows[] = {
            {"erofs", "../../../../../../outside/x", 2},
            {"ext4", "../../../../../../outside/x", 2},
            {"erofs", "..", 2},
            {"ext4", "..", 2},
            {"erofs", "a/b", 2},
            {"ext4", "a/b", 2},
            {"erofs", std::string("a\0b", 3), 2},
            {"ext4", std::string("a\0b", 3), 2},
            {"ext4", "q\" \"<12>", 0},
            {"erofs", "q\" \"<12>", 0},
            {"ext4", "bashrc\" .\r", 0},
            {"erofs", "bashrc\" .\r", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.format + (" " + row.entry));
        const std::string name(row.entry.size(), 'N');
        Write("/files/etc/" + name, "ro.b=2\n");
        fs::create_symlink(Path("/outside/kept"), Path("/files/etc/<12>"));
        Write("/files/etc/build.prop", "ro.c=3\n");
        MakeImage(row.format, "/d/my_x.img");
        Patch("/d/my_x.img", name, row.entry);
        for (const uid_t user : {uid_t{0}, kNobody}) {
            const Output lint = RunWords({"lint", "d"}, user);
            EXPECT_EQ(lint.status, row.status) << lint.err;
            EXPECT_THAT(lint.err, HasSubstr(row.status == 2 ? "d/my_x.img: /etc: " : ""));
            // The mount point has no content for the boot.
            EXPECT_EQ(RunWords({"boot", "d", "early:/odm"}, user).status, 0);
        }
        fs::remove(Path("/d/my_x.img"));
    }
    // Directories that no user may enter.
    Write("/files/etc/build.prop", "ro.c=3\n");
    Shell("chmod 0 files/etc");
    MakeImage("erofs", "/d/my_x.img");
    Expect(0, "");
}

TEST_F(StrangerImagesTest, WhatLeadsOutOfTheDeviceIsNotFollowed) {
    Write("/outside/kept", "kept");
    for (const std::string target : {"/dev/zero", "../outside/kept", "/proc/self/maps"}) {
        Link(target, "/d/my_x.img");
        Expect(2,
               "d/my_x.img: a link that leads to no file in the device directory; --image my_x=");
        fs::remove(Path("/d/my_x.img"));
    }
    Write("/d/odm/build.prop", "import /etc/passwd\nimport /odm/out/kept\n");
    Link("../../outside", "/d/odm/out");
    Link("/etc", "/d/etc");
    Expect(0, "");
    EXPECT_THAT(RunWords({"boot", "d", "early", "-v"}).out, Not(HasSubstr("root:x")));
    if (geteuid() != 0 || mknod(Path("/d/my_y.img").c_str(), S_IFBLK, makedev(7, 0)) != 0) return;
    Expect(2, "d/my_y.img: a block device in DEVICE, which is not opened; --image my_y=FILE");
    fs::remove(Path("/d/my_y.img"));

    // A block device would report its size.
    const std::string splash = std::string("/d") + android::init::kSplashPartition;
    Write("/d/my_company/media/logo/logo.bin", "logo");
    fs::create_directories(fs::path(Path(splash)).parent_path());
    ASSERT_EQ(mknod(Path(splash).c_str(), S_IFCHR | 0666, makedev(1, 3)), 0);
    const Words words = {"boot", "d",     "sim:triggerLogoCopyFromCompany",
                         "-v",   "--set", "ro.tesvo.image.my_company.date.utc=1"};
    const Output output = RunWords(words);
    EXPECT_THAT(output.out, Not(HasSubstr("Logo resource is too large")));
    fs::remove(Path(splash));
    Write(splash, "s");
    EXPECT_THAT(RunWords(words).out, HasSubstr("Logo resource is too large"));
}

// A directory that another process replaces by a link and back, as fast as it can.
TEST_F(StrangerImagesTest, NoSwapLeadsOut) {
    Write("/out/etc/a.prop", "ro.secret=outside\n");
    Write("/d/odm/build.prop", "import /odm/swapped/etc/a.prop\n");
    Write("/d/odm/swapped/etc/a.prop", "ro.own=inside\n");
    Link(Path("/out"), "/swap");
    const auto exchange = [this] {
        return renameat2(AT_FDCWD, Path("/swap").c_str(), AT_FDCWD, Path("/d/odm/swapped").c_str(),
                         RENAME_EXCHANGE);
    };
    ASSERT_EQ(exchange(), 0);
    std::atomic<bool> done = false;
    std::thread swapper([&] {
        while (!done) exchange();
    });
    for (int i = 0; i < 100; ++i) {
        EXPECT_THAT(RunWords({"boot", "d", "-q"}).out, Not(HasSubstr("secret"))) << i;
    }
    EXPECT_THAT(RunWords({"lint", "d"}).out, Not(HasSubstr("secret")));
    done = true;
    swapper.join();
}

TEST_F(StrangerImagesTest, HolesAndDepthsAreNoBurden) {
    const std::string large = "was not opened: it is larger than 16 MiB";
    const char* lint_large = "this is larger than any property file";
    MakeHole("/d/odm/build.prop");
    Expect(0, large, lint_large);
    Write("/d/odm/build.prop", "ro.a=1\n");

    MakeHole("/files/build.prop");
    MakeImage("ext4", "/d/my_region.img");
    Expect(0, large, lint_large);
    fs::remove(Path("/d/my_region.img"));

    Write("/files/etc/sub/build.prop", "ro.b=2\n");
    MakeImage("ext4", "/d/my_x.img");
    Shell("debugfs -w -R 'ln /etc /etc/sub/loop' d/my_x.img");
    const Output lint = RunWords({"lint", "d"}, kNobody);
    EXPECT_EQ(lint.status, 2);
    EXPECT_THAT(lint.err, HasSubstr("d/my_x.img: /etc/sub/loop/sub: the same directory as /etc"));
    fs::remove(Path("/d/my_x.img"));

    // An Android sparse image that stands for 3 GB of nothing.
    struct {
        uint32_t magic = 0xed26ff3a;
        uint16_t major = 1, minor = 0, header = 28, chunk_header = 12;
        uint32_t block = 4096, blocks = 3 << 18, chunks = 1, checksum = 0;
        uint16_t type = 0xcac3, reserved = 0;
        uint32_t chunk_blocks = 3 << 18, size = 12;
    } sparse;
    static_assert(sizeof(sparse) == 40);
    Write("/d/my_region.img", std::string(reinterpret_cast<const char*>(&sparse), sizeof(sparse)));
    Expect(2, "d/my_region.img: neither an ext4 nor");
    fs::remove(Path("/d/my_region.img"));

    const std::string splash = std::string("/d") + android::init::kSplashPartition;
    MakeHole(splash);
    Write("/d/my_company/media/logo/logo.bin", "logo");
    const Words copies = {"boot", "d", "sim:triggerLogoCopyFromCompany", "--set",
                          "ro.tesvo.image.my_company.date.utc=1"};
    EXPECT_THAT(RunWords(copies).err, HasSubstr("splash_odm: larger than 256 MiB"));
    fs::remove(Path(splash));
    MakeHole("/d/my_company/media/logo/logo.bin");
    Write(splash, std::string(1024, 's'));
    EXPECT_THAT(RunWords(copies).err, HasSubstr("logo.bin was not opened"));

    unique_fd deep = MakeDeep(1000);
    for (int i = 0; i < 300; ++i) {
        unique_fd(openat(deep.get(), (std::to_string(i) + ".prop").c_str(), O_WRONLY | O_CREAT,
                         0644));
    }
    Expect(0, "");
    Shell("rm -r d/deep");
    deep = MakeDeep(5000);  // deeper than any path can be
    Expect(0, "");
    Shell("rm -r d/deep");
}

}  // namespace
