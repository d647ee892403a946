// The tool's answers for people. Nothing in them but line ends moves a terminal.

#pragma once

#include <iosfwd>
#include <string>

#include "explain/diff.h"
#include "explain/explain.h"

namespace extprop {

// Prints a boot's report. A verbose one has every log line and opened file; otherwise warnings
// that every device gives are counted. The properties end it unless the boot failed.
void PrintReport(const Report& report, bool verbose, std::ostream& out);

// Whether every healthy device gives such log lines, which are counted unless all is told.
bool IsUsual(const std::string& message);

// Returns one line that says what the library did not survive.
std::string FailureText(const BootFailure& failure);

// Returns the explanation, in colours if wanted. Unless it is verbose, of a property with many
// origins those are left out that say least.
std::string ExplanationText(const Explanation& explanation, bool colours, bool verbose);

std::string DifferenceText(const Difference& difference);

// Returns what became of a value, as it stands after it; nothing if it won.
std::string FateText(const Origin& origin);

}  // namespace extprop
