#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device.h"

namespace {

using android::base::WriteStringToFile;
using android::init::InitExtensionPropertyImpl;
using testing::ElementsAre;
using testing::IsEmpty;

const char kOpta[] = "persist.sys.tesvo.operator.opta";
const char kOptb[] = "persist.sys.tesvo.operator.optb";
const std::string kSsv = "/mnt/vendor/tesvoreserve/system/ssv/";
const std::string kCustomize = "/data/system/customize/";

// A device whose radio store maps to the key "K".
void WriteNvKey(Device* device) {
    device->Write("/mnt/vendor/tesvoreserve/radio/exp_operator_switch.config", "nv");
    device->Write("/odm/etc/flags.prop", "nv=K\n");
}

void LoadKeys() {
    PropertyMap props;
    InitExtensionPropertyImpl::getInstance()->loadExtensionSimswitchKeyInfo(&props);
}

PropertyMap Overlay(const std::string& partition) {
    PropertyMap props;
    auto* extension = InitExtensionPropertyImpl::getInstance();
    extension->loadExtensionPartitionSimswitchProperties(partition, &props);
    return props;
}

std::vector<Call> Reload(Init& init) {
    init.extension->loadSimSwitchOverrideProperties(Init::Callback);
    return init.TakeCalls();
}

std::vector<Call> Command(Init& init, const std::string& command) {
    init.extension->loadSimSwitchOverrideProperties(command, Init::Callback);
    return init.TakeCalls();
}

std::string Replaced(const std::string& old, const std::string& now) {
    return "W Overriding previous 'ro.' property 'a':'" + old + "' with new value '" + now + "'";
}

TEST(SimSwitchOverlay, RowsInOrderWithTheNvFileTwice) {
    Device device;
    WriteNvKey(&device);
    device.Write("/p/etc/build.K.prop", "a=1\na=2\n");
    device.Write("/p/etc/build..prop", "a=nobody\n");
    device.Write("/p/properties/C/D/SimSwitchCurrentTime/x.prop", "a=current\n");
    device.Write("/p/properties/F/SimSwitchFirstTime/x.prop", "a=first\n");
    device.Write("/p/properties/X/switchCarrierChannel/x.prop", "a=channel\n");
    device.Write("/p/properties/R/regionSwitch/x.prop", "a=region\n");
    device.MakeDirectory("/q/etc/build.K.prop");
    device.Boot([](Init& init) {
        init.Set("sys.sim.switch.current", "C/D");
        init.Set("sys.sim.switch.first", "F");
        init.Set("persist.sys.channel.info", "X");
        init.Set("sys.region.switch.first", "R");
        init.Set(kOpta, "a");
        init.Set(kOptb, "b");
        LoadKeys();
        EXPECT_THAT(Reload(init), IsEmpty());
        EXPECT_THAT(Command(init, "switchCarrierChannel"), IsEmpty());
        init.TakeLog();
        EXPECT_EQ(Overlay("/p"), (PropertyMap{{"a", "region"}}));
        EXPECT_THAT(init.TakeLog(),
                    ElementsAre(Replaced("1", "2"), Replaced("2", "1"), Replaced("1", "2"),
                                Replaced("2", "current"), Replaced("current", "first"),
                                Replaced("first", "channel"), Replaced("channel", "region")));
        EXPECT_EQ(Overlay("/q/"), PropertyMap());
        const std::string unread =
                "W Couldn't load property file '/q//etc/build.K.prop': "
                "Unable to read file contents: Is a directory";
        EXPECT_THAT(init.TakeLog(),
                    ElementsAre(unread, "E nv old property load failed:/q//etc/build.K.prop",
                                unread, "E ssv old property load failed:/q//etc/build.K.prop"));
    });
}

TEST(SimSwitchOverlay, EmptyKeysSelectNothing) {
    for (const bool has_nv_key : {false, true}) {
        Device device;
        if (has_nv_key) WriteNvKey(&device);
        device.Write("/p/etc/build..prop", "pair=1\n");
        device.Write("/odm/etc/build.K.prop", "nv=1\n");
        device.Write("/p/etc/build.K.prop", "nv=1\nnv=2\n");
        for (const char* leaf : {"SimSwitchCurrentTime", "SimSwitchFirstTime",
                                 "switchCarrierChannel", "regionSwitch"}) {
            device.Write(std::string("/p/properties/") + leaf + "/x.prop", "nobody=1\n");
        }
        device.Boot([&](Init& init) {
            LoadKeys();
            init.TakeLog();
            EXPECT_EQ(Overlay("/p"), has_nv_key ? PropertyMap({{"nv", "2"}}) : PropertyMap());
            EXPECT_EQ(init.TakeLog().size(), has_nv_key ? 1u : 0u);  // loaded once
            EXPECT_THAT(Reload(init), IsEmpty());  // the radio's key alone is not enough
            init.Set(kOpta, "a");
            init.Set(kOptb, "b");
            Reload(init);
            EXPECT_EQ(Overlay("/p").count("pair"), has_nv_key ? 0u : 1u);
        });
    }
}

TEST(SimSwitchReload, WithoutKeysOnlyTheVersions) {
    Device device;
    device.Write("/odm/etc/build..prop", "pair=1\n");
    device.Write("/mnt/vendor/my_stock/etc/nvmap.prop", "ab\xC4-de=KEY\nold key=OLD\n");
    device.Write(kSsv + "sim_action_file", "old key");
    device.Boot([](Init& init) {
        const Call version = {0, {{"ro.tesvo.customize.display.version_name", "V2"}}};
        const Call pair = {0, {{"pair", "1"}}};
        init.Set("ro.tesvo.image.my_carrier.version_name", "C-V2");
        init.Set(kOpta, "AB\xC4");
        EXPECT_THAT(Reload(init), ElementsAre(version));
        init.Set("ro.tesvo.customize.display.version_name", "");
        init.Set(kOptb, "De");
        EXPECT_THAT(Reload(init), ElementsAre(pair));
        init.Set(kOpta, "");  // the pair is kept
        EXPECT_THAT(Reload(init), ElementsAre(pair));
        LoadKeys();
    });
    // The pair, in lower case, stands for the old action file's key.
    EXPECT_EQ(device.Read(kSsv + "sim_switch_first_file"), "sys.sim.switch.first=KEY\n");
}

TEST(SimSwitchReload, MountedPackageComesLast) {
    const std::string manifest = "/mnt/vendor/my_manifest";
    Device device;
    for (const std::string& root : {std::string("/odm"), manifest, std::string("/cota"),
                                    std::string("/0"), std::string("/01")}) {
        device.Write(root + "/properties/F/SimSwitchFirstTime/x.prop",
                     "last=" + root + "\n" + root + "=1\n");
    }
    device.Write("/odm/properties/C/SimSwitchCurrentTime/x.prop", "current=1\n");
    device.Boot([&](Init& init) {
        init.Set("sys.sim.switch.first", "F");
        const auto last = [&](const char* verify, const char* load, const std::string& winner) {
            init.Set("sys.cotaimg.verify", verify);
            init.Set("sys.cota.load.properties", load);
            const PropertyMap expected = {
                    {"/odm", "1"}, {manifest, "1"}, {winner, "1"}, {"last", winner}};
            EXPECT_THAT(Reload(init), ElementsAre(Call{0, expected})) << verify << load;
            init.Set("sys.sim.switch.first", "");  // the key is kept
        };
        last("", "/cota", manifest);
        last("10", "/cota", manifest);
        last("1", "0", manifest);
        last("1", "", manifest);
        last("1", "/cota", "/cota");
        last("1", "01", "/01");
        init.Set("sys.sim.switch.first", "none");
        init.Set("sys.sim.switch.current", "C");
        EXPECT_THAT(Reload(init), ElementsAre(Call{0, {{"current", "1"}}}));
    });
}

TEST(SimSwitchCommand, EachLoadsItsOwn) {
    const struct {
        std::string command, leaf, property, key_file;
    } commands[] = {{"simSwitchCurrent", "SimSwitchCurrentTime", "sys.sim.switch.current",
                     kSsv + "sim_switch_current_file"},
                    {"simSwitchFirst", "SimSwitchFirstTime", "sys.sim.switch.first",
                     kSsv + "sim_switch_first_file"},
                    {"switchCarrierChannel", "switchCarrierChannel", "persist.sys.channel.info",
                     kCustomize + "data_common_prop_file.prop"},
                    {"regionSwitch", "regionSwitch", "sys.region.switch.first",
                     kCustomize + "sim_switch/region_switch_file"}};
    Device device;
    WriteNvKey(&device);
    device.Write("/odm/etc/build.K.prop", "old=1\n");
    for (const auto& known : commands) {
        device.Write("/odm/properties/" + known.leaf + "/x.prop", "nobody=1\n");
        device.Write(known.key_file + ".other", "");
        for (const std::string key : {"boot", "new"}) {
            const std::string file = "/properties/" + key + "/" + known.leaf + "/x.prop";
            device.Write("/odm" + file, key + "=odm\nodm=" + known.leaf + "\n");
            device.Write("/mnt/vendor/my_company" + file, key + "=" + known.leaf + "\n");
        }
    }
    device.Boot([&](Init& init) {
        for (const auto& known : commands) {
            EXPECT_THAT(Command(init, known.command), IsEmpty());
            WriteStringToFile(known.property + "=boot\n", known.key_file);
        }
        LoadKeys();
        for (const auto& known : commands) {
            const Call changed = {0, {{"new", known.leaf}, {"odm", known.leaf}}};
            EXPECT_THAT(Command(init, known.command),
                        ElementsAre(Call{0, {{"boot", known.leaf}, {"odm", known.leaf}}}));
            init.Set(known.property, "new");
            EXPECT_THAT(Command(init, known.command), ElementsAre(changed));
            init.Set(known.property, "");
            EXPECT_THAT(Command(init, known.command), ElementsAre(changed));
            init.Set(known.property, "unknown");
            EXPECT_THAT(Command(init, known.command), IsEmpty());
        }
    });
}

TEST(SimSwitchCommand, FilesAndUnknownWords) {
    Device device;
    device.Write("/odm/properties/F/SimSwitchFirstTime/x.prop", "a=1\n");
    device.Boot([](Init& init) {
        init.Set("sys.sim.switch.first", "F");
        for (const char* word : {"simSwitchFirstX", "simswitchfirst", "simSwitchFirst ", "",
                                 "triggerLogoCop", " triggerLogoCopy"}) {
            EXPECT_THAT(Command(init, word), IsEmpty()) << word;
        }
        EXPECT_THAT(init.TakeLog(), IsEmpty());
        const auto logo = [&init](const std::string& command, const std::string& line) {
            EXPECT_THAT(Command(init, command), IsEmpty());
            EXPECT_THAT(init.TakeLog(), ElementsAre("I " + line)) << command;
        };
        logo("triggerLogoCopy", "Can not access the target Partition");
        std::filesystem::create_directories("/dev/block/by-name/splash_odm");
        logo("triggerLogoCopy:/nowhere", "No logo resource found");
        logo("triggerLogoCopyFromCompany", "Missing component information");

        std::filesystem::create_directories(kCustomize);
        const auto file = [&init](const char* command, const char* name, const char* text) {
            const std::string path = kCustomize + name;
            EXPECT_THAT(Command(init, command), IsEmpty());
            EXPECT_THAT(init.TakeLog(), ElementsAre("W Couldn't load property file '" + path +
                                                            "': open() failed: No such file or "
                                                            "directory",
                                                    text + path));
            WriteStringToFile("ro.a=" + path, path);
            EXPECT_THAT(Command(init, command), ElementsAre(Call{0, {{"ro.a", path}}}));
        };
        file("updateDataCommonProp", "data_common_prop_file.prop",
             "E load data common prop failed:");
        file("emptyAppchannelProp", "empty_appchannel_prop_file.prop",
             "E load empty appchannel prop file failed:");
    });
}

}  // namespace
