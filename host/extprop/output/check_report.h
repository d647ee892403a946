// Texts on the result of a check, for people. Only CheckText() is printable; the others hold texts
// of devices as they are.

#pragma once

#include <string>
#include <vector>

#include "matrix/check.h"

namespace extprop {

// An expectation that several variants do not meet, for the same reason.
struct UnmetGroup {
    std::string name;               // of the expectation, with its file and line
    const UnmetExpectation* unmet;  // of the first variant
    size_t count;                   // of the variants
    std::string variants;           // in few words
};

// Returns the groups, in the order of their first cases. They point into the result, which must
// outlive them.
std::vector<UnmetGroup> GroupsOf(const CheckResult& result);

// Returns a line for each group, below the name of its expectation, and a last line with the
// counts.
std::string CheckText(const CheckResult& result);

// Returns what a case concerns: the variant, and the phone if one was checked.
std::string SubjectText(const CheckResult& result, const Variant& variant);

// Returns what was checked: "2 variants", or the phone's name.
std::string SubjectsText(const CheckResult& result);

// Returns what is not as expected, or how the boot failed, without the variant.
std::string UnmetText(const UnmetExpectation& unmet);

}  // namespace extprop
