// What became of expectations, for people.

#pragma once

#include <string>

#include "matrix/check.h"

namespace extprop {

std::string CheckText(const CheckResult& result);

// Returns what is not as expected, without the variant.
std::string UnmetText(const UnmetExpectation& unmet);

}  // namespace extprop
