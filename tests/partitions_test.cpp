#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device.h"

namespace {

using testing::ElementsAre;
using testing::Pair;
using namespace std::string_literals;

// In the order in which they are read; the names stand for directories such as
// /mnt/vendor/my_stock.
const char* const kRoots[] = {"/odm",          "preload",         "zorlin",      "stock",
                              "region/global", "region/global/V", "product",     "region",
                              "region/V",      "product/cust/EU", "carrier",     "carrier/cust",
                              "bigball",       "company",         "engineering", "manifest"};

constexpr char kBrandFile[] = "/system_ext/etc/build.prop";
constexpr char kBrand[] = "ro.tesvo.image.system_ext.brand=";

PropertyMap EarlyProperties(Init& init, PropertyMap properties = {}) {
    init.extension->loadExtensionPartitionProperties(&properties);
    return properties;
}

TEST(Partitions, LoadsAllRootsInOrder) {
    Device device;
    device.Write(kBrandFile, kBrand + "vantrix\n"s);
    std::vector<std::string> expected_log;
    std::string previous = "init";
    for (std::string root : kRoots) {
        if (root != "/odm") root.insert(0, "/mnt/vendor/my_");
        device.Write(root + "/build.prop", "winner=" + root + "\nro.tesvo.pipeline.region = EU \n");
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
        std::string brand, code;
    } const cases[] = {{"QuBa", "Q"}, {"lumora", "L"}, {"VANTRIX", "V"},
                       {"qubas", ""}, {"", ""},        {"other", ""}};
    for (const auto& known : cases) {
        SCOPED_TRACE(known.brand);
        Device device;
        device.Write(kBrandFile, kBrand + known.brand + "\n");
        device.Boot([&](Init&) {
            const auto& list = android::init::PartitionSearchList;
            ASSERT_EQ(list.size(), 16u);
            EXPECT_EQ(list[5], "/mnt/vendor/my_region/global/" + known.code);
            EXPECT_EQ(list[8], "/mnt/vendor/my_region/" + known.code);
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
    const std::string type = "ro.tesvo.image.my_carrier.type";
    const std::string priority = "ro.tesvo.cust.ver";
    const PropertyMap kept[] = {{}, {{type, "empty"}}, {{type, "x"}, {priority, ""}}};
    Device device;
    device.Boot([&](Init& init) {
        for (const auto& given : kept) EXPECT_EQ(EarlyProperties(init, given), given);
        for (const char* other : {"empty ", ""}) {
            EXPECT_EQ(EarlyProperties(init, {{type, other}}),
                      (PropertyMap{{type, other}, {priority, "1"}}));
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

}  // namespace
