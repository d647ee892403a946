// The property-file loader, compared with the floor under any loader that fills the same map and
// with a common general-purpose loader.

#include <glib.h>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <benchmark/benchmark.h>

#include "synthetic.h"
#include "utils.h"

namespace {

using android::init::PropertyMap;

struct BenchFile {
    explicit BenchFile(const std::string& content) {
        android::base::WriteStringToFile(content, file.path);
    }
    TemporaryFile file;
};

void BM_Loader(benchmark::State& state) {
    const BenchFile bench(SyntheticBuildProp(state.range(0)));
    for (auto _ : state) {
        PropertyMap properties;
        load_properties_from_file_without_se(bench.file.path, nullptr, &properties);
        benchmark::DoNotOptimize(properties);
    }
}

// The floor: one read of the file, and one insertion of each pair, split beforehand.
void BM_Floor(benchmark::State& state) {
    const std::string content = SyntheticBuildProp(state.range(0));
    const auto pairs = SplitBuildProp(content);
    const BenchFile bench(content);
    for (auto _ : state) {
        std::string read;
        android::base::ReadFileToString(bench.file.path, &read);
        benchmark::DoNotOptimize(read);
        PropertyMap properties;
        for (const auto& [name, value] : pairs) properties.emplace(name, value);
        benchmark::DoNotOptimize(properties);
    }
}

// GKeyFile needs a group header before the first pair; the rest of the file is the same.
void BM_GKeyFile(benchmark::State& state) {
    const BenchFile bench("[properties]\n" + SyntheticBuildProp(state.range(0)));
    for (auto _ : state) {
        GKeyFile* keys = g_key_file_new();
        if (!g_key_file_load_from_file(keys, bench.file.path, G_KEY_FILE_NONE, nullptr)) {
            state.SkipWithError("GKeyFile refused the file");
        }
        benchmark::DoNotOptimize(keys);
        g_key_file_free(keys);
    }
}

BENCHMARK(BM_Floor)->Arg(200)->Arg(2000);
BENCHMARK(BM_Loader)->Arg(200)->Arg(2000);
BENCHMARK(BM_GKeyFile)->Arg(200)->Arg(2000);

}  // namespace
