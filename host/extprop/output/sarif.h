// Lint's findings for code-scanning services: SARIF 2.1.0.

#pragma once

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "lint/lint.h"
#include "output/source_root.h"

namespace extprop {

// Returns a log with one run. Services keep runs of different categories apart; an empty `category`
// gives the run none. Of more than 5000 findings, which services do not take, the log has the
// errors first and counts those that it leaves out. The findings' identifiers must be those of
// kRules.
nlohmann::json SarifLog(const std::vector<Finding>& findings, const SourceRoot& root,
                        const std::string& category);

}  // namespace extprop
