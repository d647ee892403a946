// Chooses the lines that are printed for a property's origins.

#pragma once

#include <string>
#include <vector>

#include "explain/explain.h"

namespace extprop {

// A line on one origin or, if `origin` is null, a text on several similar ones.
struct ExplainedLine {
    const Origin* origin;
    std::string text;  // if origin is null
};

// Returns a line for each origin. If there are many and `verbose` is false, returns about ten,
// which summarize the others. They point into the property, which must outlive them.
std::vector<ExplainedLine> LinesOf(const ExplainedProperty& property, bool verbose);

}  // namespace extprop
