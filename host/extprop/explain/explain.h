// Tells where properties came from, for people and for programs.

#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace extprop {

// The pattern of all names, which may be none.
inline constexpr char kEverything[] = "*";

// Returns, for the report of a traced boot, {"format", "device", "properties": [{"name", "value",
// "origins"}]}: the properties whose names match one of the patterns, as in a shell; value is null
// where a property is not set. Throws InputError for any other pattern that
// nothing matches.
nlohmann::json Explain(const nlohmann::json& report, const std::vector<std::string>& patterns);

// Returns such an explanation as text, in colours if wanted.
std::string ExplanationText(const nlohmann::json& explanation, bool colours);

// Returns where the origin gave its value, such as "early /odm/build.prop:3".
std::string OriginText(const nlohmann::json& origin);

}  // namespace extprop
