// What differs between two boots.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "explain/origins.h"

namespace extprop {

struct DifferenceSide {
    std::string value;
    std::optional<Origin> origin;  // none if it is not known
};

// A property that only one boot has, or that has another value in the other boot.
struct DifferentProperty {
    std::string name;
    std::optional<DifferenceSide> a;
    std::optional<DifferenceSide> b;
};

// Each list is sorted by name.
struct Difference {
    std::vector<DifferentProperty> added;    // only the second boot has them
    std::vector<DifferentProperty> removed;  // only the first boot has them
    std::vector<DifferentProperty> changed;

    bool empty() const { return added.empty() && removed.empty() && changed.empty(); }
};

// Returns what differs between the properties at the ends of two boots; if a boot failed, those
// before its failure count. `traced_a` and `traced_b` must have followed these boots, with a
// `traced` of PreparedDevice::Boot() that takes every name.
Difference Diff(const Report& a, const Tracer& traced_a, const Report& b, const Tracer& traced_b);

}  // namespace extprop
