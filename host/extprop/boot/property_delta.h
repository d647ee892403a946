// The difference between two sets of properties.

#pragma once

#include <string>
#include <vector>

#include "boot/report.h"

namespace extprop {

struct PropertyDelta {
    PropertyMap changed;               // properties that are new or have another value
    std::vector<std::string> removed;  // sorted
};

// Returns what turns `base` into `properties`.
PropertyDelta DeltaFrom(const PropertyMap& base, const PropertyMap& properties);

}  // namespace extprop
