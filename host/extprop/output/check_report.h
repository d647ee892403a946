// What became of expectations, for people.

#pragma once

#include <string>

#include "matrix/check.h"

namespace extprop {

std::string CheckText(const CheckResult& result);

// Returns what a case is about: the variant, and the phone if it is one's.
std::string SubjectText(const CheckResult& result, const Variant& variant);

// Returns what was checked, such as "2 variants".
std::string SubjectsText(const CheckResult& result);

// Returns what is not as expected, without the variant.
std::string UnmetText(const UnmetExpectation& unmet);

}  // namespace extprop
