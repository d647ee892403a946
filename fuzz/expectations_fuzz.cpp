// Any bytes as a file of expectations: it is parsed, or refused with an error.

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
