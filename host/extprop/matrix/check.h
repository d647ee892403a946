// Holds the variants of a device against what is expected of them.

#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "matrix/expectations.h"

namespace extprop {

// An expectation that a variant does not meet.
struct UnmetExpectation {
    std::string file;
    int line = 0;
    std::string expectation;  // its name, if it has one
    Variant variant;
    std::string property;  // empty if the boot failed
    std::string expected;
    std::optional<std::string> value;
    nlohmann::json origin;  // of the value, with a text; null for none
    std::optional<BootFailure> failure;
};

// One expectation for one variant.
struct CheckedCase {
    std::string file;
    int line = 0;
    std::string expectation;
    Variant variant;
    std::vector<UnmetExpectation> unmet;
};

struct CheckResult {
    size_t variants = 0;  // booted
    size_t checked = 0;   // properties in variants
    std::vector<CheckedCase> cases;
};

// Boots what the expectations are about, with `boot`, and adds what came of it to `*result`.
void Check(const Expectations& expectations, Matrix* matrix,
           const std::function<void(const std::vector<Variant>&,
                                    const std::function<void(size_t, Outcome)>&)>& boot,
           CheckResult* result);

}  // namespace extprop
