#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device.h"

namespace {

using android::init::InitExtensionPropertyImpl;
using testing::ElementsAre;
using namespace std::string_literals;

constexpr char kPackage[] = "/mnt/cota/p";
constexpr char kVerified[] = "sys.cotaimg.verify";
constexpr char kRoot[] = "sys.cota.load.properties";
constexpr char kBigballDate[] = "ro.tesvo.image.my_bigball.date.utc";
constexpr char kBigballVersion[] = "ro.tesvo.image.my_bigball.version_name";
constexpr char kCarrierDate[] = "ro.tesvo.image.my_carrier.date.utc";
constexpr char kCarrierVersion[] = "ro.tesvo.image.my_carrier.version_name";

const Call kExport = {0, {{"ro.vendor.tesvo.exp.version", "ABEX_11"}}};
const Call kDisplay = {0, {{"ro.tesvo.customize.display.version_name", "1.0"}}};

// The three operations that load a package, each from the same directory.
void LoadMounted(Init& init) {
    init.extension->loadCotaOverrideProperties(Init::Callback);
}
void BindAndLoad(Init&) {
    ASSERT_TRUE(android::base::WriteStringToFile(
            "sys.cotaimg.verify=1\nsys.cota.load.properties=/mnt/cota/p\npersisit.c=3\n",
            "/data/cota/cota_mount_info.prop"));
    InitExtensionPropertyImpl::getInstance()->bindAndLoadCotaOverrideProperties(Init::Callback);
}
void LoadModule(Init&) {
    InitExtensionPropertyImpl::getInstance()->loadCotaConfigureModuleProperties(kPackage,
                                                                                Init::Callback);
}

// Boots a device on which the versions that follow from a package are seen.
void Boot(Device& device, const std::function<void(Init&)>& body) {
    for (const char* path : {"/data/cota", "/my_carrier", kPackage}) device.MakeDirectory(path);
    device.Boot([&](Init& init) {
        init.Set("ro.vendor.tesvo.version_suffix", "EX");
        init.Set("ro.build.display.id", "AB_11");
        init.Set("ro.tesvo.customize.display.version_name", "1.0");
        init.Set(kVerified, "1");
        init.Set(kRoot, kPackage);
        body(init);
    });
}

TEST(CotaLoad, EachOperationReadsItsDirectoriesInOrder) {
    Device device;
    const std::string key = "/properties/K/SimSwitchFirstTime/a.prop";
    device.Write("/mnt/cota/p/build.prop", "a=root\n");
    device.Write(kPackage + key, "a=root key\nb=root key\n");
    device.Write("/mnt/cota/p/cust/build.prop", "b=cust\nc=cust\n");
    device.Write("/mnt/cota/p/cust" + key, "c=cust key\n");
    const Call root = {0, {{"a", "root key"}, {"b", "root key"}}};
    const Call both = {0, {{"a", "root key"}, {"b", "cust"}, {"c", "cust key"}}};
    const Call forwarded = {0, {{"persisit.c", "3"}, {kRoot, kPackage}, {kVerified, "1"}}};
    Boot(device, [&](Init& init) {
        init.Set("sys.sim.switch.first", "K");
        init.extension->loadSimSwitchOverrideProperties("simSwitchFirst", Init::Callback);
        LoadMounted(init);
        EXPECT_THAT(init.TakeCalls(), ElementsAre(root, kExport));
        LoadModule(init);
        EXPECT_THAT(init.TakeCalls(), ElementsAre(root, kExport, kDisplay));
        BindAndLoad(init);
        EXPECT_THAT(init.TakeCalls(), ElementsAre(both, forwarded, kExport, kDisplay));
    });
}

TEST(CotaLoad, CarrierTakesWhatItLacksFromBigball) {
    const std::pair<std::string, PropertyMap> cases[] = {
            {kBigballDate + "=1\n"s, {{kBigballDate, "1"}, {kCarrierDate, "1"}}},
            {kBigballVersion + "=B\n"s, {{kCarrierVersion, "B"}}},
            {kBigballVersion + "=B\n"s + kCarrierVersion + "=\n", {{kCarrierVersion, ""}}},
    };
    Device device;
    Boot(device, [&](Init& init) {
        for (const auto& [given, handed_on] : cases) {
            ASSERT_TRUE(android::base::WriteStringToFile(given, "/mnt/cota/p/build.prop"));
            for (auto* load : {LoadMounted, BindAndLoad, LoadModule}) {
                load(init);
                EXPECT_THAT(init.TakeCalls(), testing::Contains(Call{0, handed_on}));
            }
        }
    });
}

TEST(CotaLoad, MountedPackageMustBeVerified) {
    const std::tuple<const char*, const char*, std::vector<Call>> cases[] = {
            {"11", kPackage, {}},
            {"1", "0", {}},
            // The versions follow even if there is nothing else to hand on.
            {"1", "00", {kExport}},
    };
    Device device;
    device.Write("/mnt/cota/p/build.prop", "p=1\n");
    Boot(device, [&](Init& init) {
        for (const auto& [verified, root, calls] : cases) {
            init.Set(kVerified, verified);
            init.Set(kRoot, root);
            init.extension->loadCotaOverrideProperties(Init::Callback);
            EXPECT_EQ(init.TakeCalls(), calls) << verified << " " << root;
        }
    });
}

}  // namespace
