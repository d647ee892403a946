// The documents that docs/json.md describes. Their texts may be any bytes: JsonText() and
// JsonLine() print these, while json::dump() by default throws for what is no UTF-8.

#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "compare/compare.h"
#include "explain/diff.h"
#include "explain/explain.h"
#include "json/text.h"
#include "lint/lint.h"
#include "matrix/check.h"
#include "matrix/lines.h"
#include "matrix/matrix_diff.h"

namespace extprop {

using nlohmann::json;

json ToJson(const Summary& summary);
json ToJson(const MatrixDifference& difference);
json ToJson(const CheckResult& result);
json ToJson(const Report& report);
json ToJson(const Explanation& explanation);
json ToJson(const Difference& difference);
json ToJson(const LintReport& report);
json ToJson(const Comparison& comparison);

// Returns the text of the document that ToJson makes of the value: JsonText(). It exists for all of
// these types but Summary, which SummaryLine() prints, and Explanation, which PrintJson() does.
template <typename T>
std::string DocumentText(const T& value);

// Returns the parts that a comparison's document only counts: the properties that are the same, and
// the other properties with their origins.
json CountedJson(const Comparison& comparison);

// Prints the explanation's document, a line for each property, without having all of it in memory.
// The caller checks the stream.
void PrintJson(const Explanation& explanation, std::ostream& out);

// Prints in the same way the variants that would be booted, each with its words.
void PrintJson(const VariantSpace& space, const std::vector<Variant>& variants, std::ostream& out);

}  // namespace extprop
