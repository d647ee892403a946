#include <dlfcn.h>

#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device.h"

namespace {

using android::init::InitExtensionPropertyImpl;
using android::init::PartitionSearchList;
using android::init::PropertyCallback;
using namespace std::string_literals;

// The layout of the object in memory, as init may have been compiled elsewhere.
struct Layout {
    void** slots;
    std::string strings[9];
    std::mutex mutex;
};

const Layout& LayoutOf(const IInitExtensionProperty* extension) {
    return *reinterpret_cast<const Layout*>(extension);
}

TEST(Entry, IsFoundByItsPlainNameAndReturnsOneObject) {
    Device device;
    device.Boot([](Init& init) {
        void* fetch = dlsym(RTLD_DEFAULT, "KSVI_FETCH_IInitExtensionProperty");
        auto* again = reinterpret_cast<IInitExtensionProperty* (*)(const char*)>(fetch)("renamed");
        EXPECT_EQ(again, init.extension);
        EXPECT_EQ(LayoutOf(again).strings[0], "renamed");

        // A second object does not fill the list again.
        InitExtensionPropertyImpl another;
        EXPECT_EQ(PartitionSearchList.size(), 16u);
        for (const std::string& member : LayoutOf(&another).strings) EXPECT_EQ(member, "");
    });
}

int FetchFromManyThreads() {
    IInitExtensionProperty* found[8] = {};
    std::vector<std::thread> threads;
    for (auto& extension : found) {
        threads.emplace_back([&] { extension = KSVI_FETCH_IInitExtensionProperty("x"); });
    }
    for (auto& thread : threads) thread.join();
    for (auto* extension : found) EXPECT_EQ(extension, found[0]);
    EXPECT_EQ(PartitionSearchList.size(), 16u);
    return testing::Test::HasFailure() ? 1 : 0;
}

TEST(Entry, FirstCallsFromManyThreadsMakeOneObject) {
    TemporaryDir empty;
    EXPECT_TRUE(KernelRoot(empty.path).Run(FetchFromManyThreads).ok());
}

TEST(Entry, MembersStandInTheirOrder) {
    EXPECT_EQ(sizeof(InitExtensionPropertyImpl), sizeof(Layout));
    Device device;
    device.Write("/mnt/vendor/tesvoreserve/radio/exp_operator_switch.config", "NVKEY001");
    device.Write("/odm/etc/flags.prop", "NVKEY001=target\n");
    device.Boot([](Init& init) {
        init.Set("sys.sim.switch.first", "first");
        init.Set("sys.sim.switch.current", "current");
        init.Set("sys.region.switch.first", "region");
        init.Set("persist.sys.channel.info", "channel");
        init.Set("persist.sys.tesvo.operator.opta", "A");
        init.Set("persist.sys.tesvo.operator.optb", "B");
        PropertyMap properties;
        InitExtensionPropertyImpl::getInstance()->loadExtensionSimswitchKeyInfo(&properties);
        init.extension->loadSimSwitchOverrideProperties(Init::Callback);
        init.extension->loadSimSwitchOverrideProperties("switchCarrierChannel", Init::Callback);
        EXPECT_THAT(LayoutOf(init.extension).strings,
                    testing::ElementsAre("libtesvoextproperty.so", "region", "first", "current",
                                         "channel", "", "NVKEY001", "target", "a-b"));
    });
}

// The slot numbers that init is compiled against. A call through a slot must reach the same
// operation as a call through the interface.
TEST(Entry, SlotsStandInTheirOrder) {
    Device device;
    device.Write("/root/build.prop", "a=1\n");
    device.Boot([](Init& init) {
        IInitExtensionProperty* extension = init.extension;
        void** slots = LayoutOf(extension).slots;
        const auto call = [&](int slot, auto... arguments) {
            using Function = long (*)(IInitExtensionProperty*, decltype(arguments)...);
            return reinterpret_cast<Function>(slots[slot])(extension, arguments...);
        };

        const PropertyCallback callback = Init::Callback;
        PropertyMap properties;
        const std::string& region = LayoutOf(extension).strings[1];

        call(2, "by slot");
        EXPECT_EQ(LayoutOf(extension).strings[0], "by slot");
        init.Set("ro.sys.custommedia.sourcepath", "/missing");
        call(3, "/my_media");
        EXPECT_EQ(init.Get("sys.mount.mediapath.success"), "-1");
        call(4, &properties);
        EXPECT_EQ(init.TakeLog(android::base::ERROR).size(), 16u);
        call(5, "/root"s, &properties);
        EXPECT_EQ(properties, (PropertyMap{{"a", "1"}}));

        init.Set("ro.tesvo.image.my_company.date", "1");
        call(6, callback);
        EXPECT_EQ(init.TakeCalls().back().mode, 2);
        init.Set("sys.cotaimg.verify", "1");
        init.Set("sys.cota.load.properties", "/root");
        call(7, callback);
        EXPECT_EQ(init.TakeCalls(), (std::vector<Call>{{0, {{"a", "1"}}}}));
        call(8, callback);
        EXPECT_EQ(init.TakeCalls(), (std::vector<Call>{{0, {}}}));
        init.Set("sys.region.switch.first", "by slot 9");
        call(9, callback);
        EXPECT_EQ(region, "by slot 9");
        init.Set("sys.region.switch.first", "by slot 10");
        call(10, "regionSwitch"s, callback);
        EXPECT_EQ(region, "by slot 10");
        init.TakeLog();
        EXPECT_EQ(call(11, "a"s, "1"s, callback) & 0xff, 0);
        EXPECT_TRUE(init.TakeLog().empty());
        call(12, "x"s, callback);
        EXPECT_THAT(init.TakeLog(), testing::ElementsAre("E not valid cota mount bind command:x"));
        EXPECT_TRUE(init.TakeCalls().empty());
    });
}

}  // namespace
