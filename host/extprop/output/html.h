// A boot's report as a page for a browser.

#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace extprop {

// Returns one self-contained page for the report of a traced boot and its explanation: each
// property with its origins, then what the steps did. What the opened files contain is not in it.
std::string HtmlPage(const nlohmann::json& report, const nlohmann::json& explanation);

}  // namespace extprop
