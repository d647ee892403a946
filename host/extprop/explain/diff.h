// What differs between two boots.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "explain/origins.h"

namespace extprop {

struct DifferenceSide {
    std::string value;
    std::optional<Origin> origin;
};

// A property that only one boot has, or that has another value in the other boot.
struct DifferentProperty {
    std::string name;
    std::optional<DifferenceSide> a;
    std::optional<DifferenceSide> b;
};

struct Difference {
    std::vector<DifferentProperty> added;
    std::vector<DifferentProperty> removed;
    std::vector<DifferentProperty> changed;

    bool empty() const { return added.empty() && removed.empty() && changed.empty(); }
};

// Returns what differs between two boots, with the origins of the values.
Difference Diff(const Report& a, const Tracer& traced_a, const Report& b, const Tracer& traced_b);

}  // namespace extprop
