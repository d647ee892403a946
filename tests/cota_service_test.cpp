#include <errno.h>
#include <pthread.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <system_error>
#include <thread>

#include <android-base/properties.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device.h"
#include "utils.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

// How often a bind thread has waited for a request, and whether each wait is shortened.
std::atomic<int> g_polls;
std::atomic<bool> g_hurries;

constexpr char kInfo[] = "/data/cota/cota_mount_info.prop";
constexpr char kRequest[] = "sys.cota.bind.load.properties";
constexpr char kBegun[] = "I check cota bind mount start";

const std::string kUnknown = "E not valid cota mount bind command:";

const Call kForwarded = {0, {{"sys.y", "2"}}};
const Call kModule = {0, {{"ro.m", "3"}}};

// Writes both of the installing service's files.
void WriteFiles() {
    using android::base::WriteStringToFile;
    ASSERT_TRUE(WriteStringToFile("persist.x=/mnt/cota\nsys.y=2\n", kInfo));
    ASSERT_TRUE(WriteStringToFile("mount_point=/mnt\nmodule_type=x\nbind_point=/mnt\nro.m=3\n",
                                  "/data/cota/cota_module_info.prop"));
}

void Boot(const std::function<void(Init&)>& body) {
    Device device;
    for (const char* path : {"/data/cota", "/mnt/cota"}) device.MakeDirectory(path);
    device.Boot(body);
}

void Command(Init& init, const std::string& command,
             android::init::PropertyCallback callback = Init::Callback) {
    init.extension->loadCotaServiceOverrideProperties(command, callback);
}

// Returns whether a bind thread acknowledges the request in time.
bool Serves(Init& init, const char* request, std::chrono::milliseconds limit = 10s) {
    init.Set(kRequest, request);
    const auto end = steady_clock::now() + limit;
    while (init.Get(kRequest) != "null" && steady_clock::now() < end) {
        std::this_thread::sleep_for(1ms);
    }
    return init.Get(kRequest) == "null";
}

TEST(CotaService, CommandsAreWholeWords) {
    const std::pair<std::string, std::vector<Call>> cases[] = {
            {"mount_and_check_load", {kForwarded}},
            {"mount_must_load", {kForwarded}},
            {"bind_basic_point", {kModule, kForwarded}},
            {"update_cota_info", {Call{0, {{"persist.x", "/mnt/cota"}, {"sys.y", "2"}}}}},
            {"module_bind_single", {kModule}},
            {"", {}},
            {"mount_must_load ", {}},
            {"Check_mount", {}},
            {"bind_basic_point_boot", {}},
    };
    Boot([&](Init& init) {
        for (const auto& [command, calls] : cases) {
            SCOPED_TRACE(command);
            WriteFiles();
            Command(init, command);
            EXPECT_EQ(init.TakeCalls(), calls);
            std::vector<std::string> errors;
            if (calls.empty()) errors = {kUnknown + command};
            EXPECT_EQ(init.TakeLog(android::base::ERROR), errors);
        }
    });
}

TEST(CotaService, BindThreadServesRequestsUntilTheyAreComplete) {
    Boot([](Init& init) {
        Command(init, "check_mount", [](int mode, PropertyMap properties) {
            EXPECT_NE(android::base::GetProperty(kRequest, ""), "null") << "not done yet";
            Init::Callback(mode, properties);
        });
        WriteFiles();
        EXPECT_TRUE(Serves(init, "module_bind_single_boot"));
        EXPECT_THAT(init.TakeCalls(), ElementsAre(kModule));
        EXPECT_TRUE(Serves(init, "boot_mount"));
        EXPECT_THAT(init.TakeCalls(), ElementsAre(kForwarded));
        // Serving does not count as waiting, and the next request is seen without a wait.
        const auto start = steady_clock::now();
        for (int i = 0; i < 120; i++) ASSERT_TRUE(Serves(init, "boot_mount"));
        EXPECT_LT(steady_clock::now() - start, 10s);
        EXPECT_EQ(init.TakeLog(android::base::ERROR).size(), 120u);
        // Commands and near misses are not requests, however often they are read.
        WriteFiles();
        for (const char* word : {"Boot_mount", "boot_mount ", "bind_basic_point", "check_mount"}) {
            init.Set(kRequest, word);
            std::this_thread::sleep_for(20ms);
            EXPECT_EQ(init.Get(kRequest), word);
        }
        EXPECT_TRUE(Serves(init, "bind_basic_point_boot"));
        EXPECT_THAT(init.TakeCalls(), ElementsAre(kModule, kForwarded));
        EXPECT_THAT(init.TakeLog(),
                    ElementsAre("I bind cota module: persist.x mount point: /mnt/cota",
                                "I cota module bind from: /mnt to: /mnt"));
        init.Set(kRequest, "boot_mount_bind_complete");
        std::this_thread::sleep_for(100ms);
        EXPECT_EQ(init.Get(kRequest), "boot_mount_bind_complete");
        EXPECT_FALSE(Serves(init, "boot_mount", 400ms));
        EXPECT_THAT(init.TakeLog(), ElementsAre());
    });
}

TEST(CotaService, EachCheckStartsAThreadThatGivesUpAfterHundredEmptyPolls) {
    constexpr char kGivenUp[] = "I not need do cota bind mount ";
    Boot([&](Init& init) {
        g_hurries = true;
        for (int i = 0; i < 2; i++) Command(init, "check_mount");
        std::vector<std::string> log;
        const auto end = steady_clock::now() + 20s;
        while (log.size() < 4 && steady_clock::now() < end) {
            for (std::string& line : init.TakeLog()) log.push_back(std::move(line));
            std::this_thread::sleep_for(1ms);
        }
        EXPECT_THAT(log, UnorderedElementsAre(kBegun, kBegun, kGivenUp, kGivenUp));
        EXPECT_EQ(g_polls, 200);
        EXPECT_FALSE(Serves(init, "boot_mount", 100ms));
    });
}

TEST(CotaService, ThreadThatCannotBeMadeLeavesTheLockTaken) {
    Boot([](Init& init) {
        Command(init, "check_mount");
        pthread_attr_t usual, impossible;
        ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
        ASSERT_EQ(pthread_attr_init(&impossible), 0);
        ASSERT_EQ(pthread_attr_setstacksize(&impossible, size_t{1} << 60), 0);
        ASSERT_EQ(pthread_setattr_default_np(&impossible), 0);
        EXPECT_THROW(Command(init, "check_mount"), std::system_error);
        ASSERT_EQ(pthread_setattr_default_np(&usual), 0);
        std::thread([&init] { Command(init, "other"); }).detach();
        std::this_thread::sleep_for(300ms);
        // Commands wait for the lock; the bind thread that was running takes none.
        WriteFiles();
        EXPECT_TRUE(Serves(init, "module_bind_single_boot"));
        EXPECT_THAT(init.TakeLog(), ElementsAre(kBegun, "I cota module bind from: /mnt to: /mnt"));
    });
}

// A directory without its label or owner is better than no directory.
TEST(CotaService, DirectoryIsMadeEvenWithoutItsLabelOrOwner) {
    Device device;
    device.MakeDirectory("/a");
    device.Boot([](Init& init) {
        ASSERT_EQ(chmod("/a", 0777), 0);
        platform::FailRestorecon(true);
        ASSERT_EQ(seteuid(1000), 0);
        EXPECT_EQ(createCotaDirectory("/a/d"), 0);
        EXPECT_THAT(init.TakeLog(android::base::ERROR),
                    ElementsAre("E Unable to chown file: /a/d", "E Failed to restorecon: /a/d"));
    });
}

}  // namespace

// Wraps libc's function: a wait of 200 ms between polls takes 2 ms if waits are shortened.
extern "C" int nanosleep(const timespec* wanted, timespec* left) {
    constexpr timespec kPoll = {0, 200'000'000}, kShort = {0, 2'000'000};
    const bool is_poll = wanted->tv_sec == kPoll.tv_sec && wanted->tv_nsec == kPoll.tv_nsec;
    if (is_poll) ++g_polls;
    errno = clock_nanosleep(CLOCK_MONOTONIC, 0, is_poll && g_hurries ? &kShort : wanted, left);
    return errno == 0 ? 0 : -1;
}
