// The baseline: a file with the findings that are known and not reported again.

#pragma once

#include <string>
#include <vector>

#include "lint/lint.h"

namespace extprop {

// Reads the file at `path`; if it lies in the directory `device`, no link is followed to it. Throws
// InputError with the path, and the line where that is known, if the file cannot be read, is larger
// than 64 MiB or than CheckShape() allows, is no baseline, or is one of another format.
std::vector<KnownFinding> ReadBaseline(const std::string& path, const std::string& device);

// Returns an entry for each finding, in their order, without lines.
std::vector<KnownFinding> Known(const std::vector<Finding>& findings);

// Returns the content of a file that ReadBaseline() reads as these entries, unless it is too large.
// Bytes that are no UTF-8 become U+FFFD.
std::string BaselineText(const std::vector<KnownFinding>& known);

// Removes from `*findings`, which are all that Lint() has found, those that are in the baseline.
// Puts their number into the report, and adds to it the entries that are no longer found. Returns
// the baseline without these entries. If a finding reports that something was not checked, no entry
// counts as no longer found, since it is unknown then what is fixed.
std::vector<KnownFinding> TakeKnown(const std::vector<KnownFinding>& baseline,
                                    std::vector<Finding>* findings, LintReport* report);

}  // namespace extprop
