// The cost of a run besides the library's work: of the sandbox, and of the whole tool over devices
// with few and with many files.

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include <android-base/file.h>
#include <benchmark/benchmark.h>

#include "sandbox.h"

namespace {

namespace fs = std::filesystem;

// Returns the first sample with this many additional files.
const char* DeviceWith(int64_t files) {
    static std::map<int64_t, std::unique_ptr<TemporaryDir>> devices;
    auto [device, is_new] = devices.try_emplace(files);
    if (!is_new) return device->second->path;
    device->second = std::make_unique<TemporaryDir>();
    const fs::path path = device->second->path;
    fs::copy(SAMPLES_DIR "/overlay", path, fs::copy_options::recursive);
    for (int64_t i = 0; i < files; ++i) {
        const fs::path directory = path / "odm/app" / std::to_string(i / 200);
        if (i % 200 == 0) fs::create_directories(directory);
        std::ofstream(directory / std::to_string(i)) << "app";
    }
    return device->second->path;
}

void BM_ProcessThatDoesNothing(benchmark::State& state) {
    for (auto _ : state) {
        const sandbox::Sandbox root(SAMPLES_DIR "/overlay");
        if (!root.Run([] { return 0; }).ok()) state.SkipWithError("it did not run");
    }
}

void Run(benchmark::State& state, const std::string& command) {
    for (auto _ : state) {
        if (system((command + " >/dev/null").c_str()) != 0) state.SkipWithError("it failed");
    }
}

void BM_ProgramThatDoesNothing(benchmark::State& state) {
    Run(state, std::string(NOTHING " ") + DeviceWith(0));
}

void BM_ToolThatDoesNothing(benchmark::State& state) {
    Run(state, EXTPROP " --version");
}

void BM_BootQuiet(benchmark::State& state) {
    Run(state, std::string(EXTPROP " boot -q ") + DeviceWith(state.range(0)));
}

BENCHMARK(BM_ProcessThatDoesNothing)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ProgramThatDoesNothing)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ToolThatDoesNothing)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BootQuiet)
        ->Arg(0)
        ->Arg(100)
        ->Arg(1000)
        ->Arg(20000)
        ->Arg(100000)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
