#include "sandbox.h"

#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include <android-base/file.h>

namespace {

namespace fs = std::filesystem;
using sandbox::Layer;
using sandbox::Sandbox;

class SandboxTest : public testing::TestWithParam<Layer> {
  protected:
    SandboxTest() {
        chmod(directory_.path, 0755);
        fs::create_directories(Path("/d/sub"));
        Write(Path("/d/kept"), "kept");
        Write(Path("/d/old"), "old");
        Write(Path("/d/sub/gone"), "gone");
    }

    std::string Path(const std::string& path) const { return directory_.path + path; }

    static void Write(const std::string& path, const std::string& content) {
        std::ofstream(path) << content;
    }

    static std::string Read(const std::string& path) {
        std::string content;
        return android::base::ReadFileToString(path, &content) ? content : "(missing)";
    }

    static std::string Listing(const std::vector<sandbox::FileChange>& changes) {
        std::string listing;
        for (const auto& change : changes) {
            listing += std::string(Name(change.kind)) + " " + change.path + "\n";
        }
        return listing;
    }

    TemporaryDir directory_;
};

TEST_P(SandboxTest, ChangesAreListedAndTheDeviceStaysAsItWas) {
    const sandbox::Snapshot device = sandbox::TakeSnapshot(directory_.path);
    const Sandbox root(directory_.path, GetParam());
    EXPECT_EQ(root.has_overlay(), GetParam() != Layer::kCopy);
    const sandbox::Snapshot before = root.TakeSnapshot();
    EXPECT_EQ(root.Run([] {
                      if (Read("/d/old") != "old") return 1;
                      Write("/d/new", "new");
                      Write("/d/old", "odd");
                      if (unlink("/d/sub/gone") != 0 || rmdir("/d/sub") != 0) return 2;
                      if (mkdir("/made", 0700) != 0 || chmod("/d/kept", 0600) != 0) return 3;
                      return 0;
                  }).exit_status,
              0);
    const sandbox::Snapshot after = root.TakeSnapshot();
    EXPECT_EQ(Listing(Changes(before, after)),
              "changed /d/kept\ncreated /d/new\nchanged /d/old\ndeleted /d/sub\n"
              "deleted /d/sub/gone\ncreated /made\n");
    EXPECT_EQ(Read(root.Outside("/d/old")), "odd");
    EXPECT_EQ(Listing(Changes(device, sandbox::TakeSnapshot(directory_.path))), "");

    // The next process finds the files as the last one left them; another sandbox does not.
    EXPECT_TRUE(root.Run([] { return Read("/d/new") == "new" ? 0 : 1; }).ok());
    const Sandbox other(directory_.path, GetParam());
    EXPECT_TRUE(other.Run([] { return Read("/d/old") == "old" ? 0 : 1; }).ok());
}

TEST_P(SandboxTest, MountsAreRealAndEndWithTheirProcess) {
    const Sandbox root(directory_.path, GetParam());
    const auto mount_counts = [] {
        return std::count_if(fs::directory_iterator("/d/sub"), fs::directory_iterator(),
                             [](const auto& entry) { return entry.path().filename() == "old"; });
    };
    EXPECT_TRUE(root.Run([&] {
                        if (mount("/d", "/d/sub", nullptr, MS_BIND, nullptr) != 0) return 1;
                        return mount_counts() == 1 ? 0 : 2;
                    }).ok());
    EXPECT_TRUE(root.Run([&] { return static_cast<int>(mount_counts()); }).ok());
}

INSTANTIATE_TEST_SUITE_P(Layers, SandboxTest, testing::Values(Layer::kOverlayOrCopy, Layer::kCopy));

TEST_F(SandboxTest, EndingsAreReported) {
    using namespace std::chrono_literals;
    const Sandbox root(directory_.path);
    EXPECT_EQ(root.Run([] { return 7; }).exit_status, 7);
    EXPECT_EQ(root.Run([]() -> int { abort(); }).signal, SIGABRT);
    EXPECT_EQ(root.Run([] { return raise(SIGSEGV); }).signal, SIGSEGV);
    const sandbox::Ending hung = root.Run([] { return pause(); }, 50ms);
    EXPECT_TRUE(hung.timed_out);
    EXPECT_FALSE(hung.ok());
}

TEST_F(SandboxTest, WorksForAnOrdinaryUser) {
    if (geteuid() != 0) GTEST_SKIP() << "every other test shows it";
    constexpr uid_t kNobody = 65534;
    const pid_t pid = fork();
    if (pid == 0) {
        // A process that changed its user may not write its own maps until it is dumpable again.
        const bool changed =
                setgid(kNobody) == 0 && setuid(kNobody) == 0 && prctl(PR_SET_DUMPABLE, 1) == 0;
        if (!changed) _exit(1);
        try {
            const Sandbox root(directory_.path);
            const sandbox::Ending ending = root.Run(
                    [] { return Read("/d/old") == "old" && chown("/", 0, 0) == 0 ? 0 : 1; });
            _exit(ending.ok() ? 0 : 2);
        } catch (const std::exception&) {
            _exit(3);
        }
    }
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_EQ(status, 0);
}

}  // namespace
