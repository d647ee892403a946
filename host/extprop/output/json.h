// Every typed document of the tool as JSON and back: the only place that knows the fields' names.

#pragma once

#include <functional>
#include <iosfwd>

#include <nlohmann/json_fwd.hpp>

#include "boot/message.h"
#include "explain/diff.h"
#include "explain/explain.h"
#include "lint/lint.h"
#include "matrix/check.h"
#include "matrix/lines.h"
#include "matrix/matrix_diff.h"

namespace extprop {

using nlohmann::json;

json ToJson(const Message& message);
Message MessageFromJson(json message);

json ToJson(const Survey& survey);
Survey SurveyFromJson(json document);

json ToJson(const Outcome& outcome);
Outcome OutcomeFromJson(json document);

json ToJson(const Origin& origin);

// A line of a baseline.
json ToJson(const KnownFinding& finding);
KnownFinding KnownFindingFromJson(json document);

VariantLine VariantLineFromJson(json document);
Summary SummaryFromJson(json document);

// The documents that docs/json.md describes.
json ToJson(const VariantLine& line);
json ToJson(const Summary& summary);
json ToJson(const MatrixDifference& difference);
json ToJson(const CheckResult& result);
json ToJson(const Report& report);
json ToJson(const Explanation& explanation);
json ToJson(const Difference& difference);
json ToJson(const LintReport& report);

// Returns the document on one line without an end, or on lines that are indented. Bytes that are no
// UTF-8 are replaced.
std::string JsonLine(const json& document);
std::string JsonText(const json& document);

// Throws InputError, which begins with `place`, if the JSON is nested more deeply or has more
// values than are read of what others made.
void CheckShape(const std::string& json, const std::string& place);

// Returns the text of the document that ToJson makes of what is given.
template <typename T>
std::string DocumentText(const T& value);

// Prints the explanation's document, a line a property, without holding the whole of it.
void PrintJson(const Explanation& explanation, std::ostream& out);

// Prints so what would be booted, each variant with its words.
void PrintJson(const VariantSpace& space, const std::vector<Variant>& variants,
               const std::function<Words(const Variant&)>& words, std::ostream& out);

}  // namespace extprop
