// Expectations of anybody: all that comes of them is what is expected, or what is wrong.

#include "fuzz_input.h"
#include "matrix/expectations.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Try([&] {
        const auto read = extprop::ParseExpectations(fuzz::Content(data, size), "e.yaml");
        for (const auto& expectation : read.expectations) {
            if (expectation.properties.empty() && !expectation.complete) abort();
        }
    });
    return 0;
}
