// JSON as text.

#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace extprop {

// Return the document as text: on one line without a line end, or on indented lines. Bytes that are
// no UTF-8 are replaced.
std::string JsonLine(const nlohmann::json& document);
std::string JsonText(const nlohmann::json& document);

// Throws InputError, with a message that begins with `place`, if the untrusted JSON is nested more
// deeply or has more values than the limits allow.
void CheckShape(const std::string& json, const std::string& place);

}  // namespace extprop
