// Chooses the lines that are printed for a property's origins.

#pragma once

#include <string>
#include <vector>

#include "explain/explain.h"

namespace extprop {

// A line on one origin; or, if `origin` is null, a text: on several similar origins, on an
// operation that set nothing, or above the lines.
struct ExplainedLine {
    const Origin* origin;
    std::string text;  // if origin is null
};

// Returns a line for each origin and idle operation. If there are more than ten origins and
// `verbose` is false, returns about ten lines, which summarize the others; the winner is always
// among them. They point into the property, which must outlive them. The texts are not made
// printable.
std::vector<ExplainedLine> LinesOf(const ExplainedProperty& property, bool verbose);

}  // namespace extprop
