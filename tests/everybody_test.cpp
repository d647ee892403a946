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
    // Returns the status, the document without the times in its log, and what else was said.
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
        // How deep an endless import goes depends on where the stack happens to begin.
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

    // Writes a device with whatever the steps act on, with all kinds of owners and modes.
    std::string RandomDevice(unsigned seed) const {
        std::mt19937 random(seed);
        const auto pick = [&random](size_t count) { return random() % count; };
        const std::string name = "/device" + std::to_string(seed);
        constexpr const char* kRoots[] = {"/odm",
                                          "/mnt/vendor/my_region",
                                          "/mnt/vendor/my_region/global/Q",
                                          "/my_company",
                                          "/mnt/pack",
                                          "/mnt/vendor/my_stock",
                                          "/mnt/vendor/my_carrier",
                                          "/my_carrier"};
        constexpr const char* kFiles[] = {"/build.prop",
                                          "/properties/one/SimSwitchFirstTime/a.prop",
                                          "/properties/one/SimSwitchFirstTime/b.prop",
                                          "/properties/two/regionSwitch/a.prop",
                                          "/etc/nvmap.prop",
                                          "/cust/build.prop",
                                          "/media/logo/logo.bin"};
        constexpr const char* kStateFiles[] = {
                android::init::kReserveFirstFile,    android::init::kReserveCurrentFile,
                android::init::kReserveRegionFile,   android::init::kDataFirstFile,
                android::init::kDataRegionFile,      android::init::kDataCommonFile,
                android::init::kEmptyAppChannelFile, android::init::kOldActionFile,
                android::init::kForceConnectFile,    android::init::kSplashPartition,
                android::init::kReserveCommonFile,   android::init::kConvertFile};
        constexpr const char* kLines[] = {"ro.a=1",
                                          "ro.a=2",
                                          "sys.sim.switch.first=one",
                                          "sys.region.switch.first=two",
                                          "one",
                                          "persist.b=3",
                                          "import /common.prop ro.*",
                                          "import /${ro.b:-common}.prop",
                                          "ro.tesvo.image.my_company.date.utc=5",
                                          "ro.sys.custommedia.sourcepath=/mnt/pack",
                                          "ro.tesvo.image.system_ext.brand=quba"};
        const auto lines = [&](size_t most) {
            std::string content;
            for (size_t i = pick(most + 1); i > 0; --i)
                content += std::string(kLines[pick(11)]) + "\n";
            return content;
        };
        Write(name + "/common.prop", "ro.common=1\npersist.common=2\n");
        for (const char* root : kRoots) {
            for (const char* file : kFiles) {
                if (pick(3) == 0) Write(name + root + file, lines(4));
            }
        }
        for (const char* file : kStateFiles) {
            if (pick(2) == 0) Write(name + file, lines(2) + std::string(pick(2) * 1024, '#'));
        }
        if (pick(2) == 0) {
            Write(name + "/data/cota/cota_mount_info.prop",
                  "sys.cotaimg.verify=1\nsys.cota.load.properties=/mnt/pack\nro.c=1\nmodule=" +
                          std::string(pick(2) ? "/mnt/cota/x/y" : "/data/system/customize/z") +
                          "\n");
        }
        if (pick(2) == 0) {
            Write(name + "/data/cota/cota_module_info.prop",
                  "module_type=configure\nmount_point=/mnt/pack\nbind_point=/my_carrier\n");
        }
        if (pick(3) == 0) {
            fs::create_directories(Path(name + "/mnt/vendor"));
            std::error_code exists;
            fs::create_symlink("../../odm", Path(name + "/mnt/vendor/my_product"), exists);
        }
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
