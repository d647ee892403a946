// The documents that docs/json.md describes.

#pragma once

#include <iosfwd>
#include <string>

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

// Returns the text of the document that ToJson makes of what is given.
template <typename T>
std::string DocumentText(const T& value);

// Returns what the document of a comparison only counts: the properties that are the same, and the
// others with their origins.
json CountedJson(const Comparison& comparison);

// Prints the explanation's document, a line a property, without holding the whole of it.
void PrintJson(const Explanation& explanation, std::ostream& out);

// Prints so what would be booted, each variant with its words.
void PrintJson(const VariantSpace& space, const std::vector<Variant>& variants, std::ostream& out);

}  // namespace extprop
