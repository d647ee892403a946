#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device.h"

namespace {

using android::init::InitExtensionPropertyImpl;
using testing::ElementsAre;
using testing::IsEmpty;

const char kOpta[] = "persist.sys.tesvo.operator.opta";
const char kOptb[] = "persist.sys.tesvo.operator.optb";

// The commands that go by a key, in the order in which the overlay loads their directories.
const struct {
    std::string command, leaf, property;
} kKeyCommands[] = {{"simSwitchCurrent", "SimSwitchCurrentTime", "sys.sim.switch.current"},
                    {"simSwitchFirst", "SimSwitchFirstTime", "sys.sim.switch.first"},
                    {"switchCarrierChannel", "switchCarrierChannel", "persist.sys.channel.info"},
                    {"regionSwitch", "regionSwitch", "sys.region.switch.first"}};

void LoadKeys() {
    PropertyMap props;
    InitExtensionPropertyImpl::getInstance()->loadExtensionSimswitchKeyInfo(&props);
}

PropertyMap Overlay(const std::string& partition) {
    PropertyMap props;
    InitExtensionPropertyImpl::getInstance()->loadExtensionPartitionSimswitchProperties(partition,
                                                                                        &props);
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

TEST(SimSwitchOverlay, RowsInOrderWithTheNvFileTwice) {
    Device device;
    device.Write("/mnt/vendor/tesvoreserve/radio/exp_operator_switch.config", "nv");
    device.Write("/odm/etc/flags.prop", "nv=K\n");
    device.Write("/odm/etc/build.K.prop", "old=1\n");
    device.Write("/p/etc/build.K.prop", "a=1\na=2\n");
    for (const auto& known : kKeyCommands) {
        device.Write("/p/properties/" + known.leaf + "/x.prop", "a=nobody\n");
        device.Write("/p/properties/K/" + known.leaf + "/x.prop", "a=" + known.leaf + "\n");
    }
    device.MakeDirectory("/q/etc/build.K.prop");
    device.Boot([](Init& init) {
        LoadKeys();
        EXPECT_THAT(Reload(init), IsEmpty());  // the radio's key alone is not enough
        EXPECT_EQ(Overlay("/p"), (PropertyMap{{"a", "2"}}));
        for (const auto& known : kKeyCommands) init.Set(known.property, "K");
        init.Set(kOpta, "a"), init.Set(kOptb, "b");
        EXPECT_THAT(Reload(init), ElementsAre(Call{0, {{"old", "1"}}}));
        Command(init, "switchCarrierChannel");
        init.TakeLog();
        EXPECT_EQ(Overlay("/p"), (PropertyMap{{"a", "regionSwitch"}}));
        std::vector<std::string> log;
        const char* old = "1";
        for (const char* now : {"2", "1", "2", "SimSwitchCurrentTime", "SimSwitchFirstTime",
                                "switchCarrierChannel", "regionSwitch"}) {
            log.push_back(std::string("W Overriding previous 'ro.' property 'a':'") + old +
                          "' with new value '" + now + "'");
            old = now;
        }
        EXPECT_EQ(init.TakeLog(), log);
        EXPECT_EQ(Overlay("/q/"), PropertyMap());
        EXPECT_THAT(init.TakeLog(android::base::ERROR),
                    ElementsAre("E nv old property load failed:/q//etc/build.K.prop",
                                "E ssv old property load failed:/q//etc/build.K.prop"));
    });
}

TEST(SimSwitchReload, VersionsOrPairAndPackage) {
    Device device;
    device.Write("/odm/etc/build..prop", "pair=1\n");
    device.Write("/cota/etc/build..prop", "pair=cota\n");
    device.Write("/mnt/vendor/my_stock/etc/nvmap.prop", "ab\xC4-de=KEY\nold key=OLD\n");
    const std::string reserve = "/mnt/vendor/tesvoreserve/system/ssv/";
    device.Write(reserve + "sim_action_file", "old key");
    device.Boot([](Init& init) {
        init.Set("ro.tesvo.image.my_carrier.version_name", "C-V2");
        init.Set(kOpta, "AB\xC4");
        EXPECT_THAT(Reload(init),
                    ElementsAre(Call{0, {{"ro.tesvo.customize.display.version_name", "V2"}}}));
        init.Set("ro.tesvo.customize.display.version_name", "");
        init.Set(kOptb, "De");
        EXPECT_THAT(Reload(init), ElementsAre(Call{0, {{"pair", "1"}}}));
        init.Set(kOpta, "");  // the pair is kept
        init.Set("sys.cota.load.properties", "/cota");
        init.Set("sys.cotaimg.verify", "1");
        EXPECT_THAT(Reload(init), ElementsAre(Call{0, {{"pair", "cota"}}}));
        LoadKeys();
    });
    // The pair, in lower case, stands for the old action file's key.
    EXPECT_EQ(device.Read(reserve + "sim_switch_first_file"), "sys.sim.switch.first=KEY\n");
}

TEST(SimSwitchCommand, EachLoadsItsOwn) {
    Device device;
    std::string keys;
    for (const auto& known : kKeyCommands) {
        keys += known.property + "=boot\n";
        device.Write("/odm/properties/" + known.leaf + "/x.prop", "nobody=1\n");
        for (const std::string key : {"boot", "new"}) {
            const std::string file = "/properties/" + key + "/" + known.leaf + "/x.prop";
            device.Write("/odm" + file, key + "=odm\nodm=" + known.leaf + "\n");
            device.Write("/mnt/vendor/my_company" + file, key + "=" + known.leaf + "\n");
        }
    }
    device.Write("/data/system/customize/data_common_prop_file.prop", keys);
    device.Boot([](Init& init) {
        for (const auto& known : kKeyCommands) EXPECT_THAT(Command(init, known.command), IsEmpty());
        LoadKeys();
        for (const auto& known : kKeyCommands) {
            const auto expect = [&](const std::string& set, const std::string& key) {
                init.Set(known.property, set);
                EXPECT_THAT(Command(init, known.command),
                            ElementsAre(Call{0, {{key, known.leaf}, {"odm", known.leaf}}}));
                EXPECT_THAT(Command(init, known.command + "X"), IsEmpty());
            };
            expect("", "boot"), expect("new", "new"), expect("", "new");
        }
        const auto file = [&init](const char* command, const char* name, const char* failed) {
            const std::string path = std::string("/data/system/customize/") + name;
            remove(path.c_str());
            EXPECT_THAT(Command(init, command), IsEmpty());
            EXPECT_EQ(init.TakeLog().back(), failed + path);
            android::base::WriteStringToFile("ro.a=" + path, path);
            EXPECT_THAT(Command(init, command), ElementsAre(Call{0, {{"ro.a", path}}}));
        };
        file("updateDataCommonProp", "data_common_prop_file.prop",
             "E load data common prop failed:");
        file("emptyAppchannelProp", "empty_appchannel_prop_file.prop",
             "E load empty appchannel prop file failed:");
    });
}

}  // namespace
