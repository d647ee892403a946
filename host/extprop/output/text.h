// The tool's results as text for people. All of it is printable but FailureText() and FateText(),
// which hold texts of devices as they are.

#pragma once

#include <iosfwd>
#include <string>

#include "explain/diff.h"
#include "explain/explain.h"

namespace extprop {

// Prints a boot's report, and the properties at its end unless the boot failed. `verbose` prints
// every log line and opened file; otherwise warnings that every device causes are only counted.
void PrintReport(const Report& report, bool verbose, std::ostream& out);

// Returns whether the message of a log line is one that every healthy device causes.
bool IsUsual(const std::string& message);

// Returns one line on how the library failed.
std::string FailureText(const BootFailure& failure);

// Returns the explanation's text, with colours if wanted. Unless `verbose` is set, the least
// important origins of a property with many are left out.
std::string ExplanationText(const Explanation& explanation, bool colours, bool verbose);

// Returns a line or more for each property that differs, or that there is no difference.
std::string DifferenceText(const Difference& difference);

// Returns the text on a value's fate that follows the value, such as "  [overridden]"; "" if the
// value won.
std::string FateText(const Origin& origin);

}  // namespace extprop
