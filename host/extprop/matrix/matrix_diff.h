// Compares the variants of two devices.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "matrix/summary.h"

namespace extprop {

// A difference that these variants share: a property that has different values on the two devices,
// or is set on one only.
struct MatrixChange {
    std::string name;
    std::optional<std::string> a;
    std::optional<std::string> b;
    std::vector<size_t> variants;  // indices in MatrixDifference::variants
};

struct MatrixDifference {
    std::string device_a;
    std::string device_b;
    std::vector<SummaryVariant> variants;  // that both devices have and that booted on both
    std::vector<SummaryVariant> failed;    // on one device or both, or on the only one
    std::vector<Variant> only_a;           // that the other does not have
    std::vector<Variant> only_b;
    std::vector<MatrixChange> changes;

    // Whether nothing differs; variants that failed do not count.
    bool empty() const { return only_a.empty() && only_b.empty() && changes.empty(); }
};

// Compares two summaries, which Collector::Summarize() must have made with the same patterns, and
// with at least one: without patterns it leaves out what has one value. Variants that only one
// device has, or that failed, are listed, but not compared.
MatrixDifference Compare(const Summary& a, const Summary& b);

}  // namespace extprop
