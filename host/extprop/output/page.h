// Results as pages for a browser.

#pragma once

#include <string>

#include "compare/compare.h"
#include "explain/explain.h"
#include "matrix/summary.h"

namespace extprop {

// Returns a self-contained HTML page for a report and its explanation: each property with its
// origins, then what the steps did. Its data are the documents of docs/json.md.
std::string ReportPage(const Report& report, const Explanation& explanation);

// Returns a self-contained HTML page for the summary: its properties by its variants.
std::string SummaryPage(const Summary& summary);

// Returns a self-contained HTML page for the comparison: first the differences, with their lines.
std::string ComparisonPage(const Comparison& comparison);

}  // namespace extprop
