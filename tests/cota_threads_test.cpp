#include <stdio.h>

#include <thread>

#include <gtest/gtest.h>

#include "device.h"

namespace {

using android::base::WriteStringToFile;
using namespace std::chrono_literals;

constexpr char kRequest[] = "sys.cota.bind.load.properties";
constexpr char kInfo[] = "/data/cota/cota_mount_info.prop";
constexpr int kRounds = 50;

// Without a lock on purpose: the library's own lock must keep the commands' calls apart.
int g_by_commands = 0;
int g_by_bind_thread = 0;

template <int* counter>
void Count(int mode, PropertyMap properties) {
    const int before = *counter;
    std::this_thread::sleep_for(1ms);
    *counter = before + 1;
    Init::Callback(mode, properties);
}

// Mainly for the thread sanitizer.
TEST(CotaThreads, CommandsRunBesideTheBindThread) {
    Device device;
    for (const char* directory : {"/data/cota", "/m"}) device.MakeDirectory(directory);
    device.Write("/p/build.prop", "ro.tesvo.image.my_bigball.version_name=B-1.0\n");
    device.Boot([](Init& init) {
        init.Set("ro.tesvo.customize.display.version_name", "1.0");
        init.extension->loadCotaServiceOverrideProperties("check_mount", Count<&g_by_bind_thread>);
        const auto update = [&](const std::string& path) {
            for (int i = 0; i < kRounds; i++) {
                EXPECT_TRUE(WriteStringToFile("sys.round=" + std::to_string(i) + "\n", path));
                EXPECT_EQ(rename(path.c_str(), kInfo), 0);
                init.extension->loadCotaServiceOverrideProperties("update_cota_info",
                                                                  Count<&g_by_commands>);
            }
        };
        std::thread first(update, "/data/first"), second(update, "/data/second");
        for (int i = 0; i < kRounds; i++) {
            EXPECT_TRUE(WriteStringToFile(
                    "mount_point=/p\nmodule_type=configure\nbind_point=/m\nro.m=1\n",
                    "/data/cota/cota_module_info.prop"));
            init.Set(kRequest, "module_bind_single_boot");
            while (init.Get(kRequest) != "null") std::this_thread::sleep_for(1ms);
        }
        first.join();
        second.join();
        init.Set(kRequest, "boot_mount_bind_complete");

        // A command finds a file, its own or the other thread's, or else logs that it is missing.
        const size_t missing = init.TakeLog(android::base::ERROR).size();
        EXPECT_EQ(g_by_commands / 2 + missing, 2u * kRounds);
        EXPECT_GT(g_by_commands, 0);
        EXPECT_EQ(g_by_bind_thread, 3 * kRounds);
    });
}

}  // namespace
