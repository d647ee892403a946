// Results as pages for a browser: self-contained HTML, in which no text of a device is taken for
// markup or a script, and bytes that are no UTF-8 become U+FFFD. A boot that failed gives a page
// too, which reports the failure.

#pragma once

#include <string>

#include "compare/compare.h"
#include "explain/explain.h"
#include "matrix/summary.h"

namespace extprop {

// Returns the page for a report and the explanation of all its properties: each property with its
// origins, then what the steps did. Its data are the documents of docs/json.md.
std::string ReportPage(const Report& report, const Explanation& explanation);

// Returns the page for the summary: its properties by its variants.
std::string SummaryPage(const Summary& summary);

// Returns the page for the comparison: first the differences, with their lines.
std::string ComparisonPage(const Comparison& comparison);

}  // namespace extprop
