// Any bytes as the result lines of a matrix that are merged: a summary, or an error.

#include <android-base/strings.h>
#include <nlohmann/json.hpp>

#include "fuzz_input.h"
#include "matrix/lines.h"
#include "output/documents.h"
#include "output/matrix_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Try([&] {
        extprop::LineMerger merger;
        for (const std::string& line : android::base::Split(fuzz::Content(data, size), "\n")) {
            if (!line.empty()) merger.Add(line);
        }
        const extprop::Summary summary = merger.Summarize({});
        extprop::SummaryText(summary);
        extprop::JsonText(extprop::ToJson(summary));
    });
    return 0;
}
