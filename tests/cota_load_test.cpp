#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device.h"

namespace {

using android::init::InitExtensionPropertyImpl;
using testing::Contains;
using testing::ElementsAre;

constexpr char kPackage[] = "/mnt/cota/p";
constexpr char kVerified[] = "sys.cotaimg.verify";
constexpr char kRoot[] = "sys.cota.load.properties";
constexpr char kBigballDate[] = "ro.tesvo.image.my_bigball.date.utc";
constexpr char kBigballVersion[] = "ro.tesvo.image.my_bigball.version_name";
constexpr char kCarrierDate[] = "ro.tesvo.image.my_carrier.date.utc";
constexpr char kCarrierVersion[] = "ro.tesvo.image.my_carrier.version_name";

const Call kExport = {0, {{"ro.vendor.tesvo.exp.version", "ABEX_11"}}};
const Call kDisplay = {0, {{"ro.tesvo.customize.display.version_name", "1.0"}}};

void Write(const std::string& path, const PropertyMap& properties) {
    std::string content;
    for (const auto& [name, value] : properties) content.append(name + "=" + value + "\n");
    ASSERT_TRUE(android::base::WriteStringToFile(content, path));
}

// The three operations that load a package, each from the same directory.
void LoadMounted(Init& init) {
    init.Set(kVerified, "1");
    init.Set(kRoot, kPackage);
    init.extension->loadCotaOverrideProperties(Init::Callback);
}
void BindAndLoad(Init&) {
    Write("/data/cota/cota_mount_info.prop",
          {{kVerified, "1"}, {kRoot, kPackage}, {"persisit.c", "3"}, {"persist.d", "4"}});
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
        body(init);
    });
}

TEST(CotaLoad, EachOperationReadsItsDirectoriesInOrder) {
    Device device;
    const std::string package = kPackage;
    const std::string key = "/properties/K/SimSwitchFirstTime/a.prop";
    device.Write(package + "/build.prop", "a=root\n");
    device.Write(package + key, "a=root key\nb=root key\n");
    device.Write(package + "/cust/build.prop", "b=cust\nc=cust\n");
    device.Write(package + "/cust" + key, "c=cust key\n");
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
    const std::pair<PropertyMap, PropertyMap> cases[] = {
            {{{kBigballDate, "1"}}, {{kBigballDate, "1"}, {kCarrierDate, "1"}}},
            {{{kBigballVersion, "B"}}, {{kCarrierVersion, "B"}}},
            {{{kBigballVersion, "B"}, {kCarrierVersion, "C"}}, {{kCarrierVersion, "C"}}},
            {{{kBigballDate, "1"}, {kCarrierDate, ""}}, {{kBigballDate, "1"}, {kCarrierDate, ""}}},
            {{{kBigballVersion, "B"}, {kCarrierVersion, ""}}, {{kCarrierVersion, ""}}},
    };
    Device device;
    Boot(device, [&](Init& init) {
        for (const auto& [given, handed_on] : cases) {
            Write("/mnt/cota/p/build.prop", given);
            for (auto* load : {LoadMounted, BindAndLoad, LoadModule}) {
                load(init);
                EXPECT_THAT(init.TakeCalls(), Contains(Call{0, handed_on}));
            }
        }
    });
}

TEST(CotaLoad, MountedPackageMustBeVerified) {
    const Call loaded = {0, {{"p", "1"}}};
    const struct {
        const char* verified;
        const char* root;
        std::vector<Call> calls;
    } cases[] = {
            {"", kPackage, {}},
            {"11", kPackage, {}},
            {"1", "", {}},
            {"1", "0", {}},
            {"1", kPackage, {loaded, kExport}},
            {"1", "mnt/cota/p", {loaded, kExport}},
            // The versions follow even if there is nothing else to hand on.
            {"1", "00", {kExport}},
    };
    Device device;
    device.Write("/mnt/cota/p/build.prop", "p=1\n");
    Boot(device, [&](Init& init) {
        for (const auto& known : cases) {
            SCOPED_TRACE(std::string(known.verified) + " " + known.root);
            init.Set(kVerified, known.verified);
            init.Set(kRoot, known.root);
            init.extension->loadCotaOverrideProperties(Init::Callback);
            EXPECT_EQ(init.TakeCalls(), known.calls);
        }
        Write("/mnt/cota/p/build.prop", {});
        LoadModule(init);
        EXPECT_THAT(init.TakeCalls(), ElementsAre(kExport, kDisplay));
    });
}

}  // namespace
