// Which lines people are told of a property's origins.

#pragma once

#include <string>
#include <vector>

#include "explain/explain.h"

namespace extprop {

// A line about one origin, or, without one, about several that are alike.
struct ExplainedLine {
    const Origin* origin;
    std::string text;  // of several
};

// Returns a line for each origin, or at most ten that say what the others are. The property has to
// outlive them.
std::vector<ExplainedLine> LinesOf(const ExplainedProperty& property, bool verbose);

}  // namespace extprop
