#include <sys/stat.h>

#include <filesystem>

#include <android-base/strings.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device.h"

namespace {

using android::base::WriteStringToFile;
using android::init::checkAndRestoreChannelInfo;
using android::init::forceInternetConnection;
using testing::ElementsAre;
using namespace std::string_literals;

constexpr char kShutdown[] = "persist.sys.911.shutdown";
constexpr char kRecopy[] = "persist.sys.recopy.preload.opinstalled";
constexpr char kChannel[] = "persist.sys.channel.info";
constexpr char kCountry[] = "persist.sys.channel.country.info";
constexpr char kRemoveRegion[] = "persist.sys.remove.region.apk";
constexpr char kRemoveCarrier[] = "persist.sys.remove.carrier.apk";
constexpr char kRemoveAll[] = "persist.sys.remove.region-all.apk";
constexpr char kForce[] = "ro.tesvo.internet.force.connect";
constexpr char kMayForce[] = "ro.tesvo.internet.whether.force.connect";

constexpr char kAppChannelFile[] = "/data/system/customize/empty_appchannel_prop_file.prop";
constexpr char kCommonFile[] = "/data/system/customize/data_common_prop_file.prop";
constexpr char kReserve[] = "/mnt/vendor/tesvoreserve/system/ssv";
constexpr char kForceFile[] =
        "/mnt/vendor/tesvoreserve/system/ssv/force_connect_internet_prop_file";

// In the order in which they are deleted; the last two only if they can be opened.
const char* const kStateFiles[] = {
        kAppChannelFile, "/mnt/vendor/tesvoreserve/system/ssv/sim_switch_common_prop_file",
        kCommonFile, "/data/system/customize/sim_switch/region_switch_file",
        "/mnt/vendor/tesvoreserve/system/ssv/region_switch_file"};

using Calls = std::vector<Call>;

void StartWith(Init& init, const PropertyMap& properties) {
    platform::ResetProperties({});
    for (const auto& [name, value] : properties) init.Set(name, value);
}

// Which of the state files are there, such as "11100".
std::string StateFiles() {
    struct stat st;
    std::string there;
    for (const char* path : kStateFiles) there += lstat(path, &st) == 0 ? '1' : '0';
    return there;
}

TEST(ChannelInfo, IsRestoredOnceAfterAFlaggedShutdown) {
    const PropertyMap none = {{kRecopy, "none"}};
    const PropertyMap reset = {{kRemoveRegion, "false"},
                               {kRemoveCarrier, "false"},
                               {kRemoveAll, "false"},
                               {kRecopy, "true"},
                               {"persist.sys.reboot.time.count", "0"}};
    const auto with = [](PropertyMap properties, const PropertyMap& more) {
        properties.insert(more.begin(), more.end());
        return properties;
    };
    struct {
        const char* shutdown;
        PropertyMap given, restored;  // nothing restored, nothing done
    } const cases[] = {
            {"", {}, {}},
            {"11", {}, {}},
            {"1 ", {}, {}},
            {"1", {{kRecopy, "none"}, {kChannel, "a"}, {kRemoveAll, "true"}}, {}},
            {"1", {}, none},
            {"1", {{kChannel, "a"}}, with(none, {{kChannel, ""}})},
            {"1", {{kRemoveRegion, "true"}}, reset},
            {"1", {{kRemoveCarrier, "false"}, {kCountry, "b"}}, with(reset, {{kCountry, ""}})},
            {"1",
             {{kRemoveAll, "0"}, {kChannel, "a"}, {kCountry, "b"}},
             with(reset, {{kChannel, ""}, {kCountry, ""}})}};
    Device device;
    for (const char* path : kStateFiles) device.Write(path, "");
    device.Boot([&](Init& init) {
        for (const auto& known : cases) {
            SCOPED_TRACE(known.shutdown + testing::PrintToString(known.given));
            for (const char* path : kStateFiles) ASSERT_TRUE(WriteStringToFile("a=1\n", path));
            StartWith(init, with(known.given, {{kShutdown, known.shutdown}}));
            checkAndRestoreChannelInfo([](int mode, PropertyMap properties) {
                EXPECT_EQ(StateFiles(), "11111");  // what init does comes first
                Init::Callback(mode, properties);
            });
            const bool restores = !known.restored.empty();
            EXPECT_EQ(init.TakeCalls(), Calls(restores, Call{2, known.restored}));
            EXPECT_EQ(StateFiles(), restores ? "00000" : "11111");
            checkAndRestoreChannelInfo(Init::Callback);
            EXPECT_EQ(init.TakeCalls(), Calls{});
            EXPECT_THAT(init.TakeLog(), ElementsAre());
        }
    });
}

TEST(ChannelInfo, StateFilesOfOtherKinds) {
    struct {
        int (*make)(const char* path);
        const char* left;
        bool fails;
    } const cases[] = {{[](const char* path) { return symlink("/target", path); }, "00000", false},
                       {[](const char* path) { return symlink("/missing", path); }, "11111", false},
                       // A socket exists, but even root cannot open it.
                       {[](const char* path) { return mknod(path, S_IFSOCK, 0); }, "00011", false},
                       {[](const char* path) { return mkdir(path, 0700); }, "11111", true}};
    Device device;
    device.Write("/target", "kept");
    for (const char* path : kStateFiles) device.Write(path, "");
    device.Boot([&](Init& init) {
        for (const auto& known : cases) {
            std::vector<std::string> errors;
            for (const char* path : kStateFiles) {
                remove(path);
                ASSERT_EQ(known.make(path), 0);
                if (known.fails) errors.push_back("E unlink() failed for "s + path);
            }
            StartWith(init, {{kShutdown, "1"}});
            checkAndRestoreChannelInfo(Init::Callback);
            EXPECT_EQ(StateFiles(), known.left);
            EXPECT_EQ(init.TakeLog(), errors);
        }
    });
    EXPECT_EQ(device.Read("/target"), "kept");
}

TEST(DataProperties, BothFilesFillOneMap) {
    constexpr char kFirst[] = "both=1\na=1\n";
    const PropertyMap first = {{"a", "1"}, {"both", "1"}};
    const std::string no_first = "E reboot empty appchanel property failed:"s + kAppChannelFile;
    const std::string no_second = "E reboot data common property failed:"s + kCommonFile;
    struct {
        std::string app_channel, common;  // the content, the target of a link, or no file
        Calls calls;
        std::string error;
    } const cases[] = {
            {kFirst,
             "both=2\nro.x=2\n",
             {{0, first}, {0, {{"both", "2"}, {"a", "1"}, {"ro.x", "2"}}}},
             ""},
            {kFirst, "", {{0, first}}, ""},
            {"", "import /target\n", {{0, {{"linked", "1"}}}}, ""},
            {"", "", {}, ""},
            {"#\n", "", {{0, {}}}, ""},
            // A link is there but is not loaded: what the map holds is handed on all the same.
            {"/target", "both=2\n", {{0, {}}, {0, {{"both", "2"}}}}, no_first},
            {kFirst, "/target", {{0, first}, {0, first}}, no_second},
            {"/missing", "/target", {{0, {}}}, no_second}};
    Device device;
    device.Write("/target", "linked=1\n");
    device.Write(kAppChannelFile, "");
    device.Boot([&](Init& init) {
        const auto put = [](const char* path, const std::string& content) {
            unlink(path);
            if (content.empty()) return true;
            if (content[0] == '/') return symlink(content.c_str(), path) == 0;
            return WriteStringToFile(content, path);
        };
        for (const auto& known : cases) {
            SCOPED_TRACE(known.app_channel + "," + known.common);
            ASSERT_TRUE(put(kAppChannelFile, known.app_channel) && put(kCommonFile, known.common));
            android::init::loadDataSpecialProperties(Init::Callback);
            EXPECT_EQ(init.TakeCalls(), known.calls);
            EXPECT_EQ(android::base::Join(init.TakeLog(android::base::ERROR), "\n"), known.error);
        }
    });
}

TEST(ForcedConnection, IsMadeOnceIfAllowedAfterAFlaggedShutdown) {
    struct {
        const char *shutdown, *allowed, *forced;
        bool forces;
    } const cases[] = {{"1", "1", "", true},   {"", "1", "", false},   {"0", "1", "", false},
                       {"11", "1", "", false}, {"1", "", "", false},   {"1", "true", "", false},
                       {"1", "11", "", false}, {"1", "1", "1", false}, {"1", "1", "0", false}};
    Device device;
    device.MakeDirectory(kReserve);
    device.Boot([&](Init& init) {
        for (const auto& [shutdown, allowed, forced, forces] : cases) {
            SCOPED_TRACE(shutdown + ","s + allowed + "," + forced);
            StartWith(init, {{kShutdown, shutdown}, {kMayForce, allowed}, {kForce, forced}});
            for (bool writes : {forces, false}) {
                forceInternetConnection(Init::Callback);
                EXPECT_EQ(init.TakeCalls(), Calls(writes, Call{0, {{kForce, "1"}}}));
                struct stat st = {};
                EXPECT_EQ(stat(kForceFile, &st), writes ? 0 : -1);
                EXPECT_EQ(st.st_mode, writes ? S_IFREG | 0600u : 0u);
                unlink(kForceFile);
            }
            EXPECT_THAT(init.TakeLog(), ElementsAre());
        }
    });
}

TEST(ForcedConnection, FileIsReplacedOrReported) {
    Device device;
    device.Write("/target", "kept");
    device.Boot([](Init& init) {
        const auto expect = [&init](const char* error, const std::string& content) {
            StartWith(init, {{kShutdown, "1"}, {kMayForce, "1"}});
            forceInternetConnection(Init::Callback);
            EXPECT_THAT(init.TakeCalls(), ElementsAre(Call{0, {{kForce, "1"}}}));
            const std::string line = "E Unable to write force_connect_internet_prop_file_path ";
            EXPECT_EQ(android::base::Join(init.TakeLog(), "\n"),
                      *error == 0 ? error : line + error);
            std::string written;
            android::base::ReadFileToString(kForceFile, &written, true);
            EXPECT_EQ(written, content);
        };
        expect("open() failed: No such file or directory", "");
        std::filesystem::create_directories(kReserve);
        ASSERT_TRUE(WriteStringToFile(std::string(5000, 'x'), kForceFile));
        expect("", "ro.tesvo.internet.force.connect=1\n");

        ASSERT_TRUE(unlink(kForceFile) == 0 && symlink("/target", kForceFile) == 0);
        expect("open() failed: Too many levels of symbolic links", "kept");
    });
}

}  // namespace
