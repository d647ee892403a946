// Findings that are known, in a file: what stands there is no news.

#pragma once

#include <string>
#include <vector>

#include "lint/lint.h"

namespace extprop {

// Reads the file, which may lie in the directory `device`. Throws InputError, with the line.
std::vector<KnownFinding> ReadBaseline(const std::string& path, const std::string& device);

// Returns what stands in a baseline for the findings.
std::vector<KnownFinding> Known(const std::vector<Finding>& findings);

// Returns the content of a file in which these stand.
std::string BaselineText(const std::vector<KnownFinding>& known);

// Takes those of `*findings` away that stand in the baseline. Adds to the report how many these
// are, and what stands there and is found no more. Returns the rest of the baseline; that is all
// of it where not everything was checked, since nobody knows then what is no more.
std::vector<KnownFinding> TakeKnown(const std::vector<KnownFinding>& baseline,
                                    std::vector<Finding>* findings, LintReport* report);

}  // namespace extprop
