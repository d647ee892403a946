// Texts on the comparison of a device with a phone, for people.

#pragma once

#include <string>

#include "compare/compare.h"

namespace extprop {

// Returns the comparison's printable text. `verbose` lists what is otherwise only counted. If the
// boot failed, nothing was compared, and the text has only what was known before.
std::string ComparisonText(const Comparison& comparison, bool verbose);

// Returns the warning about a value of the phone that the device cannot have. It is not made
// printable.
std::string WarningText(const MissingValue& missing);

}  // namespace extprop
