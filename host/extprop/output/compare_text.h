// What a device and a phone do not have alike, for people.

#pragma once

#include <string>

#include "compare/compare.h"

namespace extprop {

// Returns the comparison; a verbose one lists what is only counted otherwise. Of a boot that failed
// nothing is compared.
std::string ComparisonText(const Comparison& comparison, bool verbose);

// Returns what is said first of a phone that the device cannot be.
std::string WarningText(const MissingValue& missing);

}  // namespace extprop
