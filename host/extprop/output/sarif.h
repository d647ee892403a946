// Lint's findings for code-scanning services: SARIF 2.1.0.

#pragma once

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "lint/lint.h"
#include "output/source_root.h"

namespace extprop {

// Returns a log with one run. Services keep runs of different categories apart; `category` may be
// empty.
nlohmann::json SarifLog(const std::vector<Finding>& findings, const SourceRoot& root,
                        const std::string& category);

}  // namespace extprop
