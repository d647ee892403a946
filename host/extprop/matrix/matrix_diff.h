// Compares the variants of two devices.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "matrix/summary.h"

namespace extprop {

// A property that has different values on the two devices, or is set on one only.
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
    std::vector<SummaryVariant> failed;    // on one device or both
    std::vector<Variant> only_a;           // that the other does not have
    std::vector<Variant> only_b;
    std::vector<MatrixChange> changes;

    bool empty() const { return only_a.empty() && only_b.empty() && changes.empty(); }
};

// Compares two summaries of all properties. Variants that only one device has are listed, but not
// compared.
MatrixDifference Compare(const Summary& a, const Summary& b);

}  // namespace extprop
