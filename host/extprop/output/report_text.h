// A boot's report for people.

#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace extprop {

// Returns the report as text. A verbose one has every log line and opened file; the properties end
// it unless the boot failed.
std::string ReportText(const nlohmann::json& report, bool verbose);

// Returns one line that says what the library did not survive, for a report of a failed boot.
std::string FailureText(const nlohmann::json& report);

}  // namespace extprop
