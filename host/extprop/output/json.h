// Every typed document of the tool as JSON and back: the only place that knows the fields' names.

#pragma once

#include <iosfwd>

#include <nlohmann/json.hpp>

#include "boot/message.h"
#include "explain/diff.h"
#include "explain/explain.h"

namespace extprop {

using nlohmann::json;

json ToJson(const Message& message);
Message MessageFromJson(json message);

json ToJson(const Survey& survey);
Survey SurveyFromJson(json document);

// The documents that docs/json.md describes.
json ToJson(const Report& report);
json ToJson(const Explanation& explanation);
json ToJson(const Difference& difference);

// Prints the explanation's document, a line a property, without holding the whole of it.
void PrintJson(const Explanation& explanation, std::ostream& out);

}  // namespace extprop
