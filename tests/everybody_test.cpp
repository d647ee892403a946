// The tool gives the same answer to root, to an ordinary user, and where a container refuses
// namespaces, mounts and a change of root.

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <random>
#include <sstream>

#include <nlohmann/json.hpp>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "TesvoExtensionProperty/names.h"
#include "random_device.h"
#include "tool.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

enum class Who { kRoot, kOrdinaryUser, kContained };

constexpr uid_t kNobody = 65534;

bool RefuseNamespaces() {
    constexpr uint32_t kRefused[] = {SYS_unshare, SYS_setns,     SYS_mount,
                                     SYS_chroot,  SYS_open_tree, SYS_move_mount};
    std::vector<sock_filter> filter = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const uint32_t call : kRefused) {
        filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM));
    }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

class EverybodyTest : public ToolTest {
  protected:
    // Returns the status, the document without the times in its log, and standard error.
    static std::string Boot(Who who, const std::string& device, const std::string& steps) {
        const TemporaryFile out, err;
        const pid_t pid = fork();
        if (pid == 0) {
            dup2(out.fd, STDOUT_FILENO);
            dup2(err.fd, STDERR_FILENO);
            if (who != Who::kRoot && geteuid() == 0 && (setgid(kNobody) || setuid(kNobody))) {
                _exit(99);
            }
            if (who == Who::kContained && !RefuseNamespaces()) _exit(98);
            const std::string command = "exec " EXTPROP " boot " + device + " --json " + steps;
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            _exit(97);
        }
        int status = 0;
        waitpid(pid, &status, 0);
        std::string text, said;
        android::base::ReadFileToString(out.path, &text);
        android::base::ReadFileToString(err.path, &said);
        json report = json::parse(text, nullptr, false);
        if (report.is_discarded()) return text + said;
        // The depth of an endless import depends on where the stack begins.
        if (!report["failure"].is_null()) return report["failure"]["signal"];
        for (json& step : report["steps"]) {
            for (json& event : step["events"]) {
                if (!event.contains("message")) continue;
                std::string message = event["message"];
                event["message"] = message.substr(0, message.find(" took "));
            }
        }
        return std::to_string(WEXITSTATUS(status)) + said + report.dump(1);
    }

    static void ExpectTheSame(const std::string& device, const std::string& steps) {
        const std::string expected = Boot(Who::kContained, device, steps);
        ASSERT_TRUE(expected[0] == '0' || expected == "SIGSEGV") << expected;
        for (const Who who : {Who::kOrdinaryUser, Who::kRoot}) {
            if (Boot(who, device, steps) == expected) continue;
            ADD_FAILURE() << device << " " << steps;
            EXPECT_EQ(Boot(who, device, steps), expected);
        }
    }

    void SetUp() override {
        if (geteuid() != 0) return;
        const std::string reaches = "setpriv --reuid 65534 --clear-groups " EXTPROP " --version";
        if (system((reaches + " >/dev/null 2>&1").c_str()) != 0) {
            GTEST_SKIP() << "an ordinary user cannot reach the tool here";
        }
    }

    // Makes a random device, with all kinds of owners and modes.
    std::string RandomDevice(unsigned seed) const {
        const std::string name = "/device" + std::to_string(seed);
        MakeRandomDevice(Path(name), seed, false);
        Write(name + android::init::kSplashPartition, std::string(1024, '#'));
        if (!fs::is_symlink(Path(name + "/my_company"))) {
            Write(name + "/my_company/media/logo/logo.bin", "logo");
        }
        std::mt19937 random(seed);
        const auto pick = [&random](size_t count) { return random() % count; };
        for (const auto& entry : fs::recursive_directory_iterator(Path(name))) {
            constexpr mode_t kModes[] = {0, 0, 0444, 0604, 0777, 0555};
            if (entry.is_symlink() || pick(3) != 0 || geteuid() != 0) continue;
            const mode_t mode = 0444 | (entry.is_directory() ? 0111 : 0) | kModes[pick(6)];
            EXPECT_EQ(chmod(entry.path().c_str(), mode), 0);
            const uid_t user = pick(2) * 1000;
            EXPECT_EQ(chown(entry.path().c_str(), user, pick(2) * kNobody), 0);
        }
        return Path(name);
    }
};

TEST_F(EverybodyTest, GetsTheSameAnswerForTheSamples) {
    for (const auto& entry : fs::directory_iterator(Sample(""))) {
        ExpectTheSame(entry.path(),
                      "early persist sim reboot early persist "
                      "--set sys.sim.switch.first=south");
    }
}

TEST_F(EverybodyTest, GetsTheSameAnswerForRandomDevices) {
    const char* count = getenv("EXTPROP_TEST_DEVICES");
    const unsigned devices = count == nullptr ? 30 : atoi(count);
    for (unsigned seed = 0; seed < devices && !HasFailure(); ++seed) {
        ExpectTheSame(
                RandomDevice(seed),
                "early persist sim cota-service:bind_basic_point "
                "sim:triggerLogoCopyFromCompany reboot early "
                "cota-service:mount_must_load persist cota media:/my_carrier sim:regionSwitch "
                "--set persist.sys.911.shutdown=" +
                        std::to_string(seed % 2) + " --set ro.tesvo.image.my_company.date.utc=1");
    }
}

}  // namespace
