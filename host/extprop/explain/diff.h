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

// A property that one boot has and the other has not, or with another value.
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

// Returns what differs between two boots and where each of the values came from.
Difference Diff(const Report& a, const Tracer& traced_a, const Report& b, const Tracer& traced_b);

}  // namespace extprop
