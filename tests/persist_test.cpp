#include <sys/mount.h>

#include <android-base/strings.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device.h"
#include "utils.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kSsv = "/mnt/vendor/tesvoreserve/system/ssv/";
const std::string kCustomize = "/data/system/customize/";
const char kApplied[] = "persist.sys.tesvo.company.ota.version.backup";
const PropertyMap kFlashBack = {{"ro.sys.customize.flashback.company", "invalid"}};

PropertyMap operator+(PropertyMap a, const PropertyMap& b) {
    a.insert(b.begin(), b.end());
    return a;
}

std::vector<Call> Persist(Init& init) {
    EXPECT_EQ(init.extension->loadPersistOverrideProperties(Init::Callback), 0);
    return init.TakeCalls();
}

// A boot's persist stage between the reading and the storing of the persistent properties.
std::vector<Call> PersistOfBoot(Init& init, const PropertyMap& set) {
    PropertyMap kept;
    load_properties_from_file_without_se("/persist", nullptr, &kept);
    for (const PropertyMap& properties : {kept, set}) {
        for (const auto& [name, value] : properties) init.Set(name, value);
    }
    std::vector<Call> calls = Persist(init);
    std::string content;
    for (const auto& [name, value] : platform::AllProperties()) {
        if (android::base::StartsWith(name, "persist.")) content += name + "=" + value + "\n";
    }
    EXPECT_TRUE(android::base::WriteStringToFile(content, "/persist"));
    return calls;
}

TEST(Persist, EveryStageInOrder) {
    Device device;
    device.Write("/mnt/vendor/my_region/build.prop", "ro.tesvo.pipeline.region=EU\n");
    device.Write("/mnt/vendor/tesvoreserve/radio/exp_operator_switch.config", "nv");
    device.Write(kSsv + "region_switch_file", "sys.region.switch.first=deleted\n");
    device.Write("/odm/etc/flags.prop", "nv=NV\n");
    device.Write("/odm/etc/nvmap.prop", "abc-de=FIRST\n");
    device.Write("/odm/etc/build.NV.prop", "nv=1\n");
    device.Write("/odm/properties/R/regionSwitch/x.prop", "region=1\n");
    device.Write("/odm/properties/FIRST/SimSwitchFirstTime/x.prop", "first=odm\n");
    device.Write("/mnt/vendor/my_manifest/properties/FIRST/SimSwitchFirstTime/x.prop",
                 "first=manifest\n");
    device.Write("/my_company/build.prop", "ro=1\nro.company=1\nrow.company=1\n");
    device.Write("/my_company/properties/FIRST/SimSwitchFirstTime/x.prop", "company=1\nro.=1\n");
    device.Write(kCustomize + "empty_appchannel_prop_file.prop", "app=1\nboth=app\n");
    device.Write(kCustomize + "data_common_prop_file.prop", "both=data\n");
    device.Write("/my_product/cust/EU/etc/devicename.cfg", "ROM=128\nmarket=M\ntype=T\nmodel=O\n");
    device.Write("/sys/block/sda/size", "250069680\n");

    const PropertyMap boot = {
            {"persist.sys.911.shutdown", "1"},
            {"persist.sys.tesvo.operator.opta", "ABC"},
            {"persist.sys.tesvo.operator.optb", "De"},
            {"sys.region.switch.first", "R"},
            {"ro.none.clear.switch.first", "true"},
            {"ro.tesvo.image.my_company.date", "20240102"},
            {"ro.vendor.tesvo.version_suffix", "EX"},
            {"ro.build.display.id", "AB_11"},
            {"ro.tesvo.image.my_carrier.version_name", "C-V2"},
            {"ro.tesvo.internet.whether.force.connect", "1"},
            {"dev.mnt.blk.userdata", "sda"},
    };
    const PropertyMap keys = {{"ro.none.clear.switch.first", "true"}, {"both", "data"}};
    const PropertyMap region = {{"sys.region.switch.first", "R"}};
    const PropertyMap first = {{"sys.sim.switch.first", "FIRST"}};
    const PropertyMap forced = {{"ro.tesvo.internet.force.connect", "1"}};
    const PropertyMap done = {{"sys.sim.switch.convert", "true"}};
    const Call overlay = {0, {{"nv", "1"}, {"region", "1"}, {"first", "manifest"}}};
    const Call export_version = {0, {{"ro.vendor.tesvo.exp.version", "ABEX_11"}}};
    const Call display_version = {0, {{"ro.tesvo.customize.display.version_name", "V2"}}};
    const Call app_channel = {0, {{"app", "1"}, {"both", "app"}}};
    const Call data_common = {0, {{"app", "1"}, {"both", "data"}}};
    const Call market = {0,
                         {{"ro.vendor.tesvo.market.name", "M"},
                          {"ro.product.littletail_type", "T"},
                          {"ro.product.littletail_model", "O"}}};

    device.Boot([&](Init& init) {
        // What is mounted over cannot be deleted, and so outlasts the channel's restoring.
        for (const char* name : {"empty_appchannel_prop_file.prop", "data_common_prop_file.prop"}) {
            const std::string path = kCustomize + name;
            ASSERT_EQ(mount(path.c_str(), path.c_str(), nullptr, MS_BIND, nullptr), 0);
        }
        PropertyMap set = boot;
        set["persist.sys.channel.info"] = "X";
        set[kApplied] = "20230102";
        EXPECT_THAT(PersistOfBoot(init, set),
                    ElementsAre(Call{2,
                                     {{"persist.sys.channel.info", ""},
                                      {"persist.sys.recopy.preload.opinstalled", "none"}}},
                                Call{0, keys + region + kFlashBack}, Call{0, keys + first}, overlay,
                                Call{1, {{"ro", "1"}, {"row.company", "1"}, {"company", "1"}}},
                                Call{2, {{kApplied, "20240102"}}}, export_version, display_version,
                                app_channel, data_common, Call{0, forced}, market));
    });
    EXPECT_EQ(device.Read(kSsv + "region_switch_file"), "(missing)");
    EXPECT_EQ(device.Read(kSsv + "first_switch_none_clear"), "1");
    EXPECT_EQ(device.Read(kSsv + "force_connect_internet_prop_file"),
              "ro.tesvo.internet.force.connect=1\n");

    device.Boot([&](Init& init) {  // what is done once is not done again
        EXPECT_THAT(
                PersistOfBoot(init, boot),
                ElementsAre(Call{0, keys + region + first + done + forced + kFlashBack}, overlay,
                            export_version, display_version, app_channel, data_common, market));
    });
}

TEST(Persist, LifeOfADevice) {
    Device device;
    device.Write("/mnt/vendor/my_company/etc/nvmap.prop", "carrier=KEY\n");
    device.Write("/odm/properties/KEY/SimSwitchFirstTime/x.prop", "first=1\n");
    device.Write("/odm/properties/CUR/SimSwitchCurrentTime/x.prop", "current=1\n");
    device.Write("/odm/properties/OLD/regionSwitch/x.prop", "region=old\n");
    device.Write("/odm/properties/EU/regionSwitch/x.prop", "region=eu\n");
    device.Write("/my_company/build.prop", "company=1\nro.company=1\n");
    device.Write("/my_company/properties/EU/regionSwitch/x.prop", "company=eu\n");
    device.Write(kCustomize + "sim_switch/other", "");

    const char* const date = "ro.tesvo.image.my_company.date";
    const PropertyMap base = kFlashBack + PropertyMap{{"sys.sim.switch.first", "KEY"}};
    const PropertyMap done = base + PropertyMap{{"sys.sim.switch.convert", "true"}};
    const PropertyMap current = done + PropertyMap{{"sys.sim.switch.current", "CUR"}};
    const auto in_region = [](const char* key) {
        return PropertyMap{{"sys.region.switch.first", key}};
    };
    const PropertyMap first = {{"first", "1"}};
    const PropertyMap both = {{"first", "1"}, {"current", "1"}};
    const PropertyMap old_region = {{"region", "old"}};
    const struct {
        const char* what;
        PropertyMap files;
        PropertyMap set;
        std::vector<Call> calls;
    } boots[] = {
            {"factory", {}, {}, {{0, kFlashBack}}},
            {"a carrier", {}, {{"ro.boot.vxcarrier", "carrier"}}, {{0, base}, {0, first}}},
            {"keys of older software, in its format, and a first company image",
             {{kSsv + "sim_switch_current_file", "CUR\n"}, {kSsv + "region_switch_file", "OLD"}},
             {{date, "1"}},
             {{0, done + PropertyMap{{"sys.sim.switch.current", "CUR\n"}} + in_region("OLD")},
              {0, first + old_region},
              {1, {{"company", "1"}}},
              {2, {{kApplied, "1"}}}}},
            {"another region chosen",
             {},
             {{date, "1"}, {"persist.sys.remove.region.apk", "EU"}},
             {{0, current + in_region("OLD")}, {0, both + old_region}}},
            {"and taken, and no company image",
             {},
             {},
             {{0, current + in_region("EU")},
              {0, both + PropertyMap{{"region", "eu"}}},
              {1, {{"company", "eu"}}},
              {2, {{kApplied, ""}}}}},
            {"emergency shutdown",
             {},
             {{"persist.sys.911.shutdown", "1"}},
             {{2,
               {{"persist.sys.remove.region.apk", "false"},
                {"persist.sys.remove.carrier.apk", "false"},
                {"persist.sys.remove.region-all.apk", "false"},
                {"persist.sys.recopy.preload.opinstalled", "true"},
                {"persist.sys.reboot.time.count", "0"}}},
              {0, current},
              {0, both}}},
            {"and after it, with an image for others",
             {{"/my_company/build.prop", "ro.company=2"}},
             {{date, "01"}},
             {{0, current}, {0, both}, {2, {{kApplied, "01"}}}}},
    };
    for (const auto& boot : boots) {
        SCOPED_TRACE(boot.what);
        device.Boot([&](Init& init) {
            for (const auto& [name, content] : boot.files) {
                ASSERT_TRUE(android::base::WriteStringToFile(content, name));
            }
            EXPECT_EQ(PersistOfBoot(init, boot.set), boot.calls);
        });
    }
}

TEST(Persist, HeldKeysSkipTheSwitchStages) {
    const char* const opta = "persist.sys.tesvo.operator.opta";
    const char* const optb = "persist.sys.tesvo.operator.optb";
    const PropertyMap current = {{"sys.sim.switch.current", "C"},
                                 {"sys.sim.switch.convert", "not yet"}};
    const PropertyMap first = {{"sys.sim.switch.first", "F"}};
    Device device;
    device.Write(kSsv + "sim_switch_current_file", "sys.sim.switch.current=C\n");
    device.Write("/odm/properties/C/SimSwitchCurrentTime/x.prop", "current=1\n");
    device.Write("/odm/properties/F/SimSwitchFirstTime/x.prop", "first=1\n");
    device.Write("/odm/properties/R/regionSwitch/x.prop", "region=1\n");
    device.Write("/odm/etc/nvmap.prop", "abc-de=F\n");
    device.Boot([&](Init& init) {
        init.Set("sys.sim.switch.convert", "not yet");
        EXPECT_THAT(Persist(init),
                    ElementsAre(Call{0, current + kFlashBack}, Call{0, {{"current", "1"}}}));
        init.Set("sys.region.switch.first", "R");
        init.Set(opta, "ABC");
        EXPECT_THAT(Persist(init), IsEmpty());
        init.Set(optb, "De");
        EXPECT_THAT(Persist(init), ElementsAre(Call{0, current + first},
                                               Call{0, {{"current", "1"}, {"first", "1"}}}));
        EXPECT_THAT(Persist(init), IsEmpty());
    });
    device.Boot([&](Init& init) {
        // The first key is known before the pair, which is then only noted.
        init.Set("sys.sim.switch.first", "G");
        init.Set(opta, "ABC");
        EXPECT_EQ(Persist(init).size(), 2u);
        EXPECT_THAT(init.TakeLog(), Contains("W Overriding previous 'ro.' property "
                                             "'sys.sim.switch.first':'G' with new value 'F'"));
        init.Set(optb, "De");
        EXPECT_THAT(Persist(init), ElementsAre(Call{0, {{"current", "1"}, {"first", "1"}}}));
        EXPECT_THAT(Persist(init), IsEmpty());
    });

    const PropertyMap key_files = {{kSsv + "sim_switch_first_file", "sys.sim.switch.first=K"},
                                   {kSsv + "sim_switch_current_file", "sys.sim.switch.current=K"},
                                   {kSsv + "region_switch_file", "sys.region.switch.first=K"},
                                   {"/dev/block/bootdevice/by-name/reserve_exp1", "K"}};
    for (const auto& [path, content] : key_files) {
        Device held;
        held.Write(path, content);
        held.Boot([&, path = path](Init& init) {
            Persist(init);
            init.Set("sys.region.switch.first", "R");
            EXPECT_THAT(Persist(init), IsEmpty()) << path;
        });
    }
}

TEST(Persist, OldActionFileStandsWhereThePairWould) {
    Device device;
    device.Write(kSsv + "sim_action_file", "unmapped");
    device.Write("/odm/etc/nvmap.prop", "abc-de=F\n");
    device.Boot([](Init& init) {
        Persist(init);
        const PropertyMap region = {{"sys.region.switch.first", "R"}};
        init.Set("sys.region.switch.first", "R");
        init.Set("persist.sys.tesvo.operator.opta", "abc");
        init.Set("persist.sys.tesvo.operator.optb", "de");
        // No key was held, so they are looked for again.
        EXPECT_THAT(Persist(init), ElementsAre(Call{0, region}));
        EXPECT_THAT(Persist(init), IsEmpty());
    });
}

}  // namespace
