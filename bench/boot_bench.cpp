// Whole boots: the library's operations over whole devices, in a private root, so that the paths
// are those of a phone.

#include <sys/mount.h>
#include <sys/stat.h>

#include <filesystem>
#include <iostream>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <benchmark/benchmark.h>

#include "InitExtensionPropertyImpl.h"
#include "kernel_root.h"
#include "platform.h"
#include "synthetic.h"

namespace {

using android::init::InitExtensionPropertyImpl;
using android::init::PartitionSearchList;
using android::init::PropertyMap;

// The property maps that a boot fills, each from its own files.
enum BootMap { kEarly, kKeys, kOverlay, kCompany, kData, kMapCount };

struct LoadedFile {
    std::string path;
    BootMap map;
    std::vector<std::pair<std::string, std::string>> pairs;
};

void CountProperties(int, PropertyMap properties) {
    benchmark::DoNotOptimize(properties);
}

// Makes a device on which every partition and every stage of the boot has something to load.
// Returns its files in the order of loading.
std::vector<LoadedFile> MakePopulatedDevice() {
    std::vector<LoadedFile> files;
    const auto add = [&files](BootMap map, const std::string& path, const std::string& content) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        android::base::WriteStringToFile(content, path);
        files.push_back({path, map, SplitBuildProp(content)});
    };
    for (const std::string& root : PartitionSearchList) {
        add(kEarly, root + "/build.prop", SyntheticBuildProp(150, root));
    }
    const std::string reserve = "/mnt/vendor/tesvoreserve/system/ssv/";
    add(kKeys, reserve + "sim_switch_first_file", "sys.sim.switch.first=first\n");
    add(kKeys, reserve + "sim_switch_current_file", "sys.sim.switch.current=current\n");
    add(kKeys, reserve + "region_switch_file", "sys.region.switch.first=region\n");
    const auto add_overlay = [&](BootMap map, const std::string& root) {
        const std::string properties = root + "/properties/";
        for (const char* set : {"current/SimSwitchCurrentTime", "first/SimSwitchFirstTime"}) {
            add(map, properties + set + "/a.prop", SyntheticBuildProp(10, root + set));
        }
    };
    for (const std::string& root : PartitionSearchList) add_overlay(kOverlay, root);
    add(kCompany, "/my_company/build.prop", SyntheticBuildProp(150));
    add_overlay(kCompany, "/my_company");
    add(kData, "/data/system/customize/empty_appchannel_prop_file.prop", SyntheticBuildProp(10));
    platform::StoreProperty("ro.tesvo.image.my_company.date", "20250101");
    return files;
}

void BM_BootPopulated(benchmark::State& state) {
    MakePopulatedDevice();
    for (auto _ : state) {
        InitExtensionPropertyImpl extension;
        PropertyMap properties;
        extension.loadExtensionPartitionProperties(&properties);
        extension.loadPersistOverrideProperties(CountProperties);
        benchmark::DoNotOptimize(properties);
    }
}

// The floor under any loader: reads each of the same files once, and inserts its pairs, split
// beforehand, into the same maps.
void BM_BootPopulatedFloor(benchmark::State& state) {
    const std::vector<LoadedFile> files = MakePopulatedDevice();
    size_t lines = 0;
    for (const LoadedFile& file : files) lines += file.pairs.size();
    state.counters["files"] = files.size();
    state.counters["properties"] = lines;
    for (auto _ : state) {
        PropertyMap maps[kMapCount];
        for (const LoadedFile& file : files) {
            std::string content;
            android::base::ReadFileToString(file.path, &content);
            benchmark::DoNotOptimize(content);
            for (const auto& [name, value] : file.pairs) maps[file.map][name] = value;
        }
        for (const PropertyMap& map : maps) CountProperties(0, map);
    }
}

void BM_EarlyOverlaySample(benchmark::State& state) {
    InitExtensionPropertyImpl extension;
    for (auto _ : state) {
        PropertyMap properties;
        extension.loadExtensionPartitionProperties(&properties);
        benchmark::DoNotOptimize(properties);
    }
}

BENCHMARK(BM_EarlyOverlaySample);
BENCHMARK(BM_BootPopulatedFloor);
BENCHMARK(BM_BootPopulated);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    // Log lines are composed as on a device, all but VERBOSE ones, and then dropped.
    android::base::SetLogger([](auto&&...) {});
    // Without the sandbox, so that the kernel serves the calls and only the library's cost shows.
    const KernelRoot root(SAMPLES_DIR "/overlay");
    const sandbox::Ending ending = root.Run(
            [] {
                mkdir("/tmp", 0777);
                mkdir("/proc", 0755);
                mount("proc", "/proc", "proc", 0, nullptr);  // the benchmark's header needs it
                KSVI_FETCH_IInitExtensionProperty("libtesvoextproperty.so");
                benchmark::RunSpecifiedBenchmarks();
                std::cout.flush();
                return 0;
            },
            std::chrono::hours(1));
    return ending.ok() ? 0 : 1;
}
