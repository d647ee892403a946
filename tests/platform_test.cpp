#include "platform.h"

#include <thread>

#include <android-base/properties.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <selinux/android.h>

namespace {

using android::base::GetProperty;
using android::base::SetProperty;

std::string PropertyGet(const char* name, const char* fallback, int length) {
    char value[PROPERTY_VALUE_MAX + 1];
    value[PROPERTY_VALUE_MAX] = '#';
    EXPECT_EQ(property_get(name, value, fallback), length);
    EXPECT_EQ(value[PROPERTY_VALUE_MAX], '#');
    return value;
}

TEST(Platform, BothInterfacesSeeOneStore) {
    platform::ResetProperties({{"ro.given", "1"}});
    EXPECT_EQ(property_set("by.cutils", "2"), 0);
    EXPECT_TRUE(SetProperty("by.base", "3"));
    platform::StoreProperty("ro.given", "4");
    EXPECT_EQ(GetProperty("by.cutils", ""), "2");
    EXPECT_EQ(PropertyGet("by.base", nullptr, 1), "3");
    EXPECT_EQ(PropertyGet("ro.given", "x", 1), "4");
    EXPECT_EQ(platform::AllProperties().size(), 3u);
}

TEST(Platform, PropertyGetKeepsItsContract) {
    platform::ResetProperties({{"empty", ""}, {"ro.long", std::string(300, 'x')}});
    EXPECT_EQ(PropertyGet("missing", "default", 7), "default");
    EXPECT_EQ(PropertyGet("empty", "default", 7), "default");
    EXPECT_EQ(PropertyGet("missing", nullptr, 0), "");
    EXPECT_EQ(PropertyGet("ro.long", "", 91), std::string(91, 'x'));
    EXPECT_EQ(PropertyGet("missing", std::string(200, 'd').c_str(), 91), std::string(91, 'd'));
    EXPECT_EQ(GetProperty("ro.long", ""), std::string(300, 'x'));

    EXPECT_EQ(property_set("a", std::string(91, 'x').c_str()), 0);
    EXPECT_LT(property_set("a", std::string(92, 'y').c_str()), 0);
    EXPECT_EQ(GetProperty("a", ""), std::string(91, 'x'));
    EXPECT_EQ(property_set("ro.a", std::string(92, 'y').c_str()), 0);
    EXPECT_LT(property_set("", "x"), 0);
    EXPECT_EQ(property_set("a", nullptr), 0);
    EXPECT_EQ(GetProperty("a", "none"), "none");
}

TEST(Platform, RestoreconAnswersAsTold) {
    EXPECT_EQ(selinux_android_restorecon("/x", SELINUX_ANDROID_RESTORECON_RECURSE), 0);
    platform::FailRestorecon(true);
    EXPECT_LT(selinux_android_restorecon("/x", SELINUX_ANDROID_RESTORECON_RECURSE), 0);
    platform::FailRestorecon(false);
}

// Mainly for the thread sanitizer.
TEST(Platform, ThreadsShareTheStore) {
    platform::ResetProperties({});
    constexpr int kRounds = 2000;
    std::thread writer([] {
        for (int i = 1; i <= kRounds; ++i) SetProperty("count", std::to_string(i));
    });
    int last = 0;
    while (last < kRounds) {
        char value[PROPERTY_VALUE_MAX];
        property_get("count", value, "0");
        const int now = std::stoi(value);
        ASSERT_GE(now, last);
        last = now;
    }
    writer.join();
}

}  // namespace
