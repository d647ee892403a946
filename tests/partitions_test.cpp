#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device.h"

namespace {

using testing::ElementsAre;
using testing::Pair;

const char* const kRoots[] = {
        "/odm",
        "/mnt/vendor/my_preload",
        "/mnt/vendor/my_zorlin",
        "/mnt/vendor/my_stock",
        "/mnt/vendor/my_region/global",
        "/mnt/vendor/my_region/global/V",
        "/mnt/vendor/my_product",
        "/mnt/vendor/my_region",
        "/mnt/vendor/my_region/V",
        "/mnt/vendor/my_product/cust/EU",
        "/mnt/vendor/my_carrier",
        "/mnt/vendor/my_carrier/cust",
        "/mnt/vendor/my_bigball",
        "/mnt/vendor/my_company",
        "/mnt/vendor/my_engineering",
        "/mnt/vendor/my_manifest",
};

void WriteBrand(Device* device, const std::string& brand) {
    device->Write("/system_ext/etc/build.prop", "ro.tesvo.image.system_ext.brand=" + brand + "\n");
}

PropertyMap EarlyProperties(Init& init, PropertyMap properties = {}) {
    init.extension->loadExtensionPartitionProperties(&properties);
    return properties;
}

TEST(Partitions, LoadsAllRootsInOrder) {
    Device device;
    WriteBrand(&device, "vantrix");
    std::vector<std::string> expected_log;
    std::string previous = "init";
    for (const char* root : kRoots) {
        device.Write(std::string(root) + "/build.prop",
                     std::string("winner=") + root + "\nro.tesvo.pipeline.region = EU \n");
        expected_log.push_back("W Overriding previous 'ro.' property 'winner':'" + previous +
                               "' with new value '" + root + "'");
        previous = root;
    }
    device.Boot([&](Init& init) {
        EXPECT_THAT(EarlyProperties(init, {{"winner", "init"}}),
                    ElementsAre(Pair("ro.tesvo.pipeline.region", "EU"),
                                Pair("winner", "/mnt/vendor/my_manifest")));
        EXPECT_EQ(init.TakeLog(android::base::WARNING), expected_log);
        EXPECT_THAT(init.TakeCalls(), ElementsAre());
    });
}

TEST(Partitions, BrandDecidesTheLetter) {
    struct {
        const char* brand;
        const char* code;
    } const cases[] = {{"QuBa", "Q"}, {"lumora", "L"}, {"VANTRIX", "V"},
                       {"qubas", ""}, {"", ""},        {"other", ""}};
    for (const auto& known : cases) {
        SCOPED_TRACE(known.brand);
        Device device;
        WriteBrand(&device, known.brand);
        device.Boot([&](Init&) {
            const auto& list = android::init::PartitionSearchList;
            ASSERT_EQ(list.size(), 16u);
            EXPECT_EQ(list[5], std::string("/mnt/vendor/my_region/global/") + known.code);
            EXPECT_EQ(list[8], std::string("/mnt/vendor/my_region/") + known.code);
            EXPECT_EQ(list[9], "/mnt/vendor/my_product/cust/");
        });
    }
}

TEST(Partitions, MissingFilesAreReportedAndSkipped) {
    Device device;
    device.Write("/mnt/vendor/my_stock/build.prop", "a=1\n");
    device.Boot([](Init& init) {
        EXPECT_THAT(EarlyProperties(init), ElementsAre(Pair("a", "1")));
        std::vector<std::string> errors = init.TakeLog(android::base::ERROR);
        ASSERT_EQ(errors.size(), 15u);
        EXPECT_EQ(errors[0], "E partition property load failed:/odm/build.prop");
        EXPECT_EQ(errors[4],
                  "E partition property load failed:/mnt/vendor/my_region/global//build.prop");

        PropertyMap one;
        init.extension->loadExtensionPartitionProperties("/mnt/vendor/my_stock", &one);
        init.extension->loadExtensionPartitionProperties("/nowhere", &one);
        EXPECT_THAT(one, ElementsAre(Pair("a", "1")));
        EXPECT_THAT(init.TakeLog(android::base::WARNING),
                    ElementsAre("W Couldn't load property file '/nowhere/build.prop': "
                                "open() failed: No such file or directory",
                                "E partition property load failed:/nowhere/build.prop"));
    });
}

TEST(Partitions, CarrierTypeSetsThePriorityOnce) {
    struct {
        PropertyMap given;
        const char* priority;
    } const cases[] = {
            {{}, nullptr},
            {{{"ro.tesvo.image.my_carrier.type", "empty"}}, nullptr},
            {{{"ro.tesvo.image.my_carrier.type", "empty "}}, "1"},
            {{{"ro.tesvo.image.my_carrier.type", ""}}, "1"},
            {{{"ro.tesvo.image.my_carrier.type", "x"}, {"ro.tesvo.cust.ver", "0"}}, "0"},
            {{{"ro.tesvo.image.my_carrier.type", "x"}, {"ro.tesvo.cust.ver", ""}}, ""},
    };
    Device device;
    device.Boot([&](Init& init) {
        for (const auto& known : cases) {
            PropertyMap expected = known.given;
            if (known.priority != nullptr) expected["ro.tesvo.cust.ver"] = known.priority;
            EXPECT_EQ(EarlyProperties(init, known.given), expected);
        }
    });
}

TEST(Partitions, DirectoryGivesItsPropertyFilesOnly) {
    Device device;
    device.Write("/d/a.prop", "a=1\n");
    device.Write("/d/.prop", "hidden=1\n");
    device.Write("/d/b.txt", "b=1\n");
    device.Write("/d/c.PROP", "c=1\n");
    device.Write("/d/sub.prop/e.prop", "e=1\n");
    device.Write("/target", "linked=1\n");
    device.Link("/d/link.prop", "/target");
    device.Boot([](Init& init) {
        auto* extension = android::init::InitExtensionPropertyImpl::getInstance();
        PropertyMap properties;
        extension->loadPropertiesFromDir("/d", &properties);
        EXPECT_THAT(properties, ElementsAre(Pair("a", "1"), Pair("hidden", "1")));
        // The scan takes the link, the loader refuses it.
        EXPECT_THAT(init.TakeLog(android::base::ERROR),
                    ElementsAre("E property load failed:/d/link.prop"));
        extension->loadPropertiesFromDir("/nowhere", &properties);
        EXPECT_THAT(init.TakeLog(), ElementsAre());
    });
}

TEST(Partitions, ImportCycleCrashesAndOtherDevicesLive) {
    Device device;
    device.Write("/odm/build.prop", "import /odm/build.prop\n");
    const sandbox::Ending ending = device.BootToTheEnd([](Init& init) { EarlyProperties(init); });
    EXPECT_EQ(ending.signal, SIGSEGV);
}

}  // namespace
