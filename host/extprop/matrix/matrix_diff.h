// What differs between two devices, for which variants.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "matrix/summary.h"

namespace extprop {

// A property that has one value on the one device and another, or none, on the other.
struct MatrixChange {
    std::string name;
    std::optional<std::string> a;
    std::optional<std::string> b;
    std::vector<size_t> variants;  // in the difference's list
};

struct MatrixDifference {
    std::string device_a;
    std::string device_b;
    std::vector<SummaryVariant> variants;  // that both devices have and no failure keeps apart
    std::vector<SummaryVariant> failed;    // on one side or on both
    std::vector<Variant> only_a;           // that the other has not
    std::vector<Variant> only_b;
    std::vector<MatrixChange> changes;

    bool empty() const { return only_a.empty() && only_b.empty() && changes.empty(); }
};

// Compares two summaries of all properties over the same variants, but for those that only one
// device has.
MatrixDifference Compare(const Summary& a, const Summary& b);

}  // namespace extprop
