// Findings that are known, in a file: what stands there is no news.

#pragma once

#include <string>
#include <vector>

#include "lint/lint.h"

namespace extprop {

// Reads the file, which may lie in the directory `device`. Throws InputError, with the line.
std::vector<KnownFinding> ReadBaseline(const std::string& path, const std::string& device);

// Returns the content of a file in which these findings stand.
std::string BaselineText(const std::vector<Finding>& findings);

// Returns those of `*findings` that stand in the baseline, and leaves the others. Adds to the
// report how many these are, and what stands there and is found no more.
std::vector<Finding> TakeKnown(const std::vector<KnownFinding>& baseline,
                               std::vector<Finding>* findings, LintReport* report);

}  // namespace extprop
