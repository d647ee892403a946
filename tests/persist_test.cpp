#include <sys/mount.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device.h"

namespace {

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

std::vector<Call> Persist(Init& init, const PropertyMap& set = {}) {
    for (const auto& [name, value] : set) init.Set(name, value);
    EXPECT_EQ(init.extension->loadPersistOverrideProperties(Init::Callback), 0);
    return init.TakeCalls();
}

TEST(Persist, EveryStageInOrder) {
    Device device;
    device.Write("/mnt/vendor/my_region/build.prop", "ro.tesvo.pipeline.region=EU\n");
    device.Write("/mnt/vendor/tesvoreserve/radio/exp_operator_switch.config", "nv");
    device.Write("/odm/etc/flags.prop", "nv=NV\n");
    device.Write("/odm/etc/nvmap.prop", "abc-de=FIRST\n");
    device.Write("/odm/etc/build.NV.prop", "nv=1\n");
    device.Write("/odm/properties/R/regionSwitch/x.prop", "region=1\n");
    device.Write("/odm/properties/FIRST/SimSwitchFirstTime/x.prop", "first=odm\n");
    device.Write("/mnt/vendor/my_manifest/properties/FIRST/SimSwitchFirstTime/x.prop",
                 "first=manifest\n");
    device.Write("/my_company/build.prop", "ro=1\nro.company=1\nrow.company=1\n");
    device.Write("/my_company/properties/FIRST/SimSwitchFirstTime/x.prop", "company=1\nro.=1\n");
    device.Write(kCustomize + "data_common_prop_file.prop", "data=1\n");
    device.Write("/my_product/cust/EU/etc/devicename.cfg", "ROM=128\nmarket=M\ntype=T\nmodel=O\n");
    device.Write("/sys/block/sda/size", "250069680\n");

    const PropertyMap set = {
            {"persist.sys.911.shutdown", "1"},
            {"persist.sys.tesvo.operator.opta", "ABC"},
            {"persist.sys.tesvo.operator.optb", "De"},
            {"sys.region.switch.first", "R"},
            {"ro.none.clear.switch.first", "true"},
            {"ro.tesvo.image.my_company.date", "20240102"},
            {"ro.tesvo.image.my_carrier.version_name", "C-V2"},
            {"ro.tesvo.internet.whether.force.connect", "1"},
            {"dev.mnt.blk.userdata", "sda"},
    };
    const PropertyMap keys = {{"ro.none.clear.switch.first", "true"}, {"data", "1"}};
    const PropertyMap region = {{"sys.region.switch.first", "R"}};
    const PropertyMap first = {{"sys.sim.switch.first", "FIRST"}};
    const PropertyMap forced = {{"ro.tesvo.internet.force.connect", "1"}};
    const PropertyMap done = {{"sys.sim.switch.convert", "true"}};
    const PropertyMap restored = {{"persist.sys.recopy.preload.opinstalled", "none"}};
    const PropertyMap company = {{"ro", "1"}, {"row.company", "1"}, {"company", "1"}};
    const PropertyMap applied = {{kApplied, "20240102"}};
    const Call overlay = {0, {{"nv", "1"}, {"region", "1"}, {"first", "manifest"}}};
    const Call display_version = {0, {{"ro.tesvo.customize.display.version_name", "V2"}}};
    const Call data_common = {0, {{"data", "1"}}};
    const Call market = {0,
                         {{"ro.vendor.tesvo.market.name", "M"},
                          {"ro.product.littletail_type", "T"},
                          {"ro.product.littletail_model", "O"}}};

    device.Boot([&](Init& init) {
        // What is mounted over cannot be deleted, and so outlasts the channel's restoring.
        const std::string data = kCustomize + "data_common_prop_file.prop";
        ASSERT_EQ(mount(data.c_str(), data.c_str(), nullptr, MS_BIND, nullptr), 0);
        EXPECT_THAT(Persist(init, set + PropertyMap{{kApplied, "20230102"}}),
                    ElementsAre(Call{2, restored}, Call{0, keys + region + kFlashBack},
                                Call{0, keys + first}, overlay, Call{1, company}, Call{2, applied},
                                display_version, data_common, Call{0, forced}, market));
    });

    device.Boot([&](Init& init) {  // what is done once is not done again
        EXPECT_THAT(Persist(init, set + restored + applied),
                    ElementsAre(Call{0, keys + region + first + done + forced + kFlashBack},
                                overlay, display_version, data_common, market));
    });
}

TEST(Persist, HeldKeysSkipTheSwitchStages) {
    const PropertyMap current = {{"sys.sim.switch.current", "C"}};
    const PropertyMap overlay = {{"current", "1"}};
    Device device;
    device.Write(kSsv + "sim_switch_current_file", "sys.sim.switch.current=C\n");
    device.Write("/odm/properties/C/SimSwitchCurrentTime/x.prop", "current=1\n");
    device.Write("/odm/etc/nvmap.prop", "abc-de=F\n");
    device.Boot([&](Init& init) {
        EXPECT_THAT(Persist(init), ElementsAre(Call{0, current + kFlashBack}, Call{0, overlay}));
        init.Set("sys.region.switch.first", "R");
        init.Set("persist.sys.tesvo.operator.opta", "ABC");
        EXPECT_THAT(Persist(init), IsEmpty());
        // No image, and nothing of the company's to apply.
        EXPECT_THAT(Persist(init, {{kApplied, "1"}}), ElementsAre(Call{2, {{kApplied, ""}}}));
        init.Set("persist.sys.tesvo.operator.optb",
                 "De");  // the pair's key does not bring the region's
        const PropertyMap first = {{"sys.sim.switch.first", "F"}};
        EXPECT_THAT(Persist(init), ElementsAre(Call{0, current + first}, Call{0, overlay}));
    });
    // Each key alone, in the format of older software.
    for (const std::string& path : {kSsv + "sim_switch_first_file", kSsv + "region_switch_file",
                                    std::string("/dev/block/bootdevice/by-name/reserve_exp1")}) {
        Device held;
        held.Write(path, "K");
        held.Boot([&path](Init& init) {
            Persist(init);
            init.Set("sys.region.switch.first", "R");
            EXPECT_THAT(Persist(init), IsEmpty()) << path;
        });
    }
}

}  // namespace
