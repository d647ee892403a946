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
    });
}

TEST(Partitions, BrandDecidesTheLetter) {
    const PropertyMap cases = {{"QuBa", "Q"}, {"lumora", "L"}, {"VANTRIX", "V"}, {"qubas", ""}};
    for (const auto& known : cases) {
        SCOPED_TRACE(known.first);
        Device device;
        device.Write(kBrandFile, kBrand + known.first + "\n");
        device.Boot([&](Init&) {
            const auto& list = android::init::PartitionSearchList;
            ASSERT_EQ(list.size(), 16u);
            EXPECT_EQ(list[5], "/mnt/vendor/my_region/global/" + known.second);
            EXPECT_EQ(list[8], "/mnt/vendor/my_region/" + known.second);
        });
    }
}

TEST(Partitions, MissingFilesAreReportedAndSkipped) {
    Device device;
    device.Write("/mnt/vendor/my_stock/build.prop", "a=1\n");
    device.Boot([](Init& init) {
        EXPECT_THAT(EarlyProperties(init), ElementsAre(Pair("a", "1")));
        const std::vector<std::string> errors = init.TakeLog(android::base::ERROR);
        ASSERT_EQ(errors.size(), 15u);
        EXPECT_EQ(errors[4],
                  "E partition property load failed:/mnt/vendor/my_region/global//build.prop");
    });
}

TEST(Partitions, CarrierTypeSetsThePriorityOnce) {
    const std::string type = "ro.tesvo.image.my_carrier.type";
    const std::string priority = "ro.tesvo.cust.ver";
    const PropertyMap kept[] = {{{type, "empty"}}, {{type, "x"}, {priority, ""}}};
    Device device;
    device.Boot([&](Init& init) {
        for (const auto& given : kept) EXPECT_EQ(EarlyProperties(init, given), given);
        EXPECT_THAT(EarlyProperties(init, {{type, ""}}),
                    ElementsAre(Pair(priority, "1"), Pair(type, "")));
    });
}

TEST(Partitions, DirectoryGivesItsPropertyFilesOnly) {
    Device device;
    device.Write("/d/a.prop", "a=1\n");
    device.Write("/d/.prop", "hidden=1\n");
    device.Write("/d/c.PROP", "c=1\n");
    device.Write("/d/sub.prop/e.prop", "e=1\n");
    device.Write("/target", "linked=1\n");
    device.Link("/d/link.prop", "/target");
    device.Boot([](Init& init) {
        PropertyMap properties;
        android::init::InitExtensionPropertyImpl::getInstance()->loadPropertiesFromDir("/d",
                                                                                       &properties);
        EXPECT_THAT(properties, ElementsAre(Pair("a", "1"), Pair("hidden", "1")));
        // The scan takes the link, the loader refuses it.
        EXPECT_THAT(init.TakeLog(android::base::ERROR),
                    ElementsAre("E property load failed:/d/link.prop"));
    });
}

}  // namespace
