#include <sys/stat.h>

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device.h"

namespace {

using android::init::checkAndRestoreChannelInfo;
using android::init::forceInternetConnection;

constexpr char kShutdown[] = "persist.sys.911.shutdown";
constexpr char kRecopy[] = "persist.sys.recopy.preload.opinstalled";
constexpr char kChannel[] = "persist.sys.channel.info";
constexpr char kCountry[] = "persist.sys.channel.country.info";
constexpr char kMayForce[] = "ro.tesvo.internet.whether.force.connect";
const char* const kRemovals[] = {"persist.sys.remove.region.apk", "persist.sys.remove.carrier.apk",
                                 "persist.sys.remove.region-all.apk"};

const std::string kReserve = "/mnt/vendor/tesvoreserve/system/ssv/";
const std::string kForceFile = kReserve + "force_connect_internet_prop_file";
const std::string kAppChannelFile = "/data/system/customize/empty_appchannel_prop_file.prop";
const std::string kCommonFile = "/data/system/customize/data_common_prop_file.prop";

// In the order in which they are deleted; the last two only if they can be opened.
const std::string kStateFiles[] = {
        kAppChannelFile, kReserve + "sim_switch_common_prop_file", kCommonFile,
        "/data/system/customize/sim_switch/region_switch_file", kReserve + "region_switch_file"};

using Calls = std::vector<Call>;

void StartWith(const PropertyMap& properties) {
    platform::ResetProperties({});
    for (const auto& [name, value] : properties) platform::StoreProperty(name, value);
}

// Which of the state files are there, such as "11100".
std::string StateFiles() {
    struct stat st;
    std::string there;
    for (const auto& path : kStateFiles) there += lstat(path.c_str(), &st) == 0 ? '1' : '0';
    return there;
}

TEST(ChannelInfo, IsRestoredOnceAfterAFlaggedShutdown) {
    Device device;
    for (const auto& path : kStateFiles) device.Write(path, "");
    device.Boot([](Init& init) {
        // If nothing is restored, nothing is done.
        const auto expect = [&init](const PropertyMap& given, const PropertyMap& restored) {
            SCOPED_TRACE(testing::PrintToString(given));
            for (const auto& path : kStateFiles)
                ASSERT_TRUE(android::base::WriteStringToFile("a=1\n", path));
            StartWith(given);
            checkAndRestoreChannelInfo([](int mode, PropertyMap properties) {
                EXPECT_EQ(StateFiles(), "11111");  // what init does comes first
                Init::Callback(mode, properties);
            });
            EXPECT_EQ(init.TakeCalls(), Calls(!restored.empty(), Call{2, restored}));
            EXPECT_EQ(StateFiles(), restored.empty() ? "11111" : "00000");
            checkAndRestoreChannelInfo(Init::Callback);
            EXPECT_EQ(init.TakeCalls(), Calls{});
        };
        expect({{kShutdown, "11"}, {kChannel, "a"}}, {});
        expect({{kShutdown, "1"}, {kRecopy, "none"}, {kRemovals[0], "true"}}, {});
        expect({{kShutdown, "1"}, {kChannel, "a"}}, {{kChannel, ""}, {kRecopy, "none"}});
        PropertyMap reset = {
                {kCountry, ""}, {kRecopy, "true"}, {"persist.sys.reboot.time.count", "0"}};
        for (const char* flag : kRemovals) reset[flag] = "false";
        for (const char* flag : kRemovals) {
            expect({{kShutdown, "1"}, {flag, "false"}, {kCountry, "b"}}, reset);
        }
    });
}

TEST(ChannelInfo, StateFilesOfOtherKinds) {
    const struct {
        int (*make)(const char* path);
        const char* left;
    } cases[] = {{[](const char* path) { return symlink("/target", path); }, "00000"},
                 {[](const char* path) { return symlink("/missing", path); }, "11111"},
                 // A socket exists, but even root cannot open it.
                 {[](const char* path) { return mknod(path, S_IFSOCK, 0); }, "00011"},
                 {[](const char* path) { return mkdir(path, 0700); }, "11111"}};
    Device device;
    device.Write("/target", "kept");
    for (const auto& path : kStateFiles) device.Write(path, "");
    device.Boot([&](Init& init) {
        std::vector<std::string> errors;  // of the directories alone
        for (const auto& path : kStateFiles) errors.push_back("E unlink() failed for " + path);
        for (const auto& known : cases) {
            for (const auto& path : kStateFiles) {
                remove(path.c_str());
                ASSERT_EQ(known.make(path.c_str()), 0);
            }
            StartWith({{kShutdown, "1"}});
            checkAndRestoreChannelInfo(Init::Callback);
            EXPECT_EQ(StateFiles(), known.left);
        }
        EXPECT_EQ(init.TakeLog(), errors);
    });
    EXPECT_EQ(device.Read("/target"), "kept");
}

TEST(DataProperties, BothFilesFillOneMap) {
    const Call first = {0, {{"a", "1"}, {"both", "1"}}};
    const Call both = {0, {{"a", "1"}, {"both", "2"}}};
    Device device;
    device.Write(kAppChannelFile, "both=1\na=1\n");
    device.Write(kCommonFile, "both=2\n");
    device.Boot([&](Init& init) {
        android::init::loadDataSpecialProperties(Init::Callback);
        EXPECT_EQ(init.TakeCalls(), (Calls{first, both}));
        // A link is there but is not loaded: what the map holds is handed on all the same.
        for (const auto& path : {kCommonFile, kAppChannelFile}) {
            std::filesystem::rename(path, "/target");
            std::filesystem::create_symlink("/target", path);
            android::init::loadDataSpecialProperties(Init::Callback);
        }
        EXPECT_EQ(init.TakeCalls(), (Calls{first, first, {0, {}}, {0, {}}}));
        const std::string failed = "E reboot data common property failed:" + kCommonFile;
        EXPECT_THAT(init.TakeLog(android::base::ERROR),
                    testing::ElementsAre(
                            failed, "E reboot empty appchanel property failed:" + kAppChannelFile,
                            failed));
    });
}

TEST(ForcedConnection, IsMadeOnceIfAllowedAfterAFlaggedShutdown) {
    const PropertyMap allowed = {{kShutdown, "1"}, {kMayForce, "1"}};
    const Calls forced = {{0, {{"ro.tesvo.internet.force.connect", "1"}}}};
    Device device;
    device.Boot([&](Init& init) {
        const auto calls = [&init](const PropertyMap& given, const char* held = "") {
            StartWith(given);
            platform::StoreProperty("ro.tesvo.internet.force.connect", held);
            forceInternetConnection(Init::Callback);
            return init.TakeCalls();
        };
        EXPECT_EQ(calls(allowed), forced);
        EXPECT_THAT(init.TakeLog(),
                    testing::ElementsAre("E Unable to write force_connect_internet_prop_file_path "
                                         "open() failed: No such file or directory"));
        std::filesystem::create_directories(kReserve);
        EXPECT_EQ(calls({{kShutdown, "11"}, {kMayForce, "1"}}), Calls{});
        EXPECT_EQ(calls({{kShutdown, "1"}, {kMayForce, "11"}}), Calls{});
        EXPECT_EQ(calls(allowed, "0"), Calls{});
        EXPECT_FALSE(std::filesystem::exists(kForceFile));
        EXPECT_EQ(calls(allowed), forced);
        EXPECT_EQ(std::filesystem::status(kForceFile).permissions(), std::filesystem::perms(0600));
    });
    EXPECT_EQ(device.Read(kForceFile), "ro.tesvo.internet.force.connect=1\n");
}

}  // namespace
