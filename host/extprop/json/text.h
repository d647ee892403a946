// JSON as text.

#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace extprop {

// Return the document as printable text: JsonLine() on one line without a line end, JsonText() on
// indented lines, each with its end. Bytes that are no UTF-8 become U+FFFD.
std::string JsonLine(const nlohmann::json& document);
std::string JsonText(const nlohmann::json& document);

// Throws InputError if the untrusted JSON is nested more deeply than limits::kJsonDepth or has more
// values than limits::kJsonValues, so that a parser would take too much memory. The message is
// `place`, such as "a.json: ", and the reason. Does not check that the text is JSON.
void CheckShape(const std::string& json, const std::string& place);

}  // namespace extprop
