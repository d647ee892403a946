// A boot's report as a page for a browser.

#pragma once

#include <string>

#include "compare/compare.h"
#include "explain/explain.h"
#include "matrix/summary.h"

namespace extprop {

// Returns one self-contained page for a report and its explanation: each property with its origins,
// then what the steps did. Its data are the documents of docs/json.md.
std::string ReportPage(const Report& report, const Explanation& explanation);

// Returns one self-contained page for the summary: its properties by its variants.
std::string SummaryPage(const Summary& summary);

// Returns one self-contained page for the comparison: first what is not alike, with its lines.
std::string ComparisonPage(const Comparison& comparison);

}  // namespace extprop
