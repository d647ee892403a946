#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device.h"

namespace {

using testing::ElementsAre;

TEST(LimitedEdition, HandsOnTheConfigurationThenTheVersionsMadeOfIt) {
    constexpr char kConfig[] = "/my_company/etc/build.prop";
    Device device;
    device.Write(kConfig, "");
    device.Write("/my_company/build.prop", "wrong=1\n");
    device.Boot([&](Init& init) {
        const auto calls = [&init] {
            init.extension->loadDuskriderOverrideProperties(Init::Callback);
            return init.TakeCalls();
        };
        const Call exported = {0, {{"ro.vendor.tesvo.exp.version", "ABEX_11"}}};
        init.Set("ro.build.display.id", "AB_11");
        init.Set("ro.vendor.tesvo.version_suffix", "EX");
        init.Set("ro.tesvo.image.my_company.date", "2");

        ASSERT_EQ(unlink(kConfig), 0);
        EXPECT_THAT(calls(), ElementsAre(Call{0, {}}, exported));
        EXPECT_THAT(init.TakeLog(),
                    ElementsAre("W Couldn't load property file '/my_company/etc/build.prop': "
                                "open() failed: No such file or directory",
                                "I can not read prop from :/my_company/etc/build.prop"));

        const std::string region = "ro.tesvo.image.my_region.version_name";
        ASSERT_TRUE(android::base::WriteStringToFile("b=1\n" + region + "=R-1.0\n", kConfig));
        EXPECT_THAT(calls(),
                    ElementsAre(Call{0, {{"b", "1"}, {region, "R-1.0"}}}, exported,
                                Call{0, {{"ro.tesvo.customize.display.version_name", "1.0"}}}));
        EXPECT_THAT(init.TakeLog(), ElementsAre("I customize dispaly version 1.0"));

        // Nothing of an earlier call is left over, and a failed import is not the file's failure.
        ASSERT_TRUE(android::base::WriteStringToFile("a=1\nimport /missing\n", kConfig));
        EXPECT_THAT(calls(), ElementsAre(Call{0, {{"a", "1"}}}, exported));
        EXPECT_THAT(init.TakeLog(android::base::INFO).back(),
                    "E expand filename load failed : /missing");
    });
}

}  // namespace
