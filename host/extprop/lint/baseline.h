// The baseline: a file with the findings that are known and not reported again.

#pragma once

#include <string>
#include <vector>

#include "lint/lint.h"

namespace extprop {

// Reads the file, which may lie in the directory `device`. Throws InputError with the line that is
// wrong.
std::vector<KnownFinding> ReadBaseline(const std::string& path, const std::string& device);

// Returns the baseline's entries for the findings.
std::vector<KnownFinding> Known(const std::vector<Finding>& findings);

// Returns the content of a baseline with these entries.
std::string BaselineText(const std::vector<KnownFinding>& known);

// Removes from `*findings` those that are in the baseline. Adds to the report their number, and the
// entries that are no longer found. Returns the baseline without these entries; all of it if not
// everything was checked, since it is unknown then what is fixed.
std::vector<KnownFinding> TakeKnown(const std::vector<KnownFinding>& baseline,
                                    std::vector<Finding>* findings, LintReport* report);

}  // namespace extprop
