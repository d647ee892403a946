// JSON as text.

#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace extprop {

// Returns the document on one line without an end, or on lines that are indented. Bytes that are no
// UTF-8 are replaced.
std::string JsonLine(const nlohmann::json& document);
std::string JsonText(const nlohmann::json& document);

// Throws InputError, which begins with `place`, if the JSON is nested more deeply or has more
// values than are read of what others made.
void CheckShape(const std::string& json, const std::string& place);

}  // namespace extprop
