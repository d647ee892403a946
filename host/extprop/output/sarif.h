// Lint's findings for code-scanning services: SARIF 2.1.0.

#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "lint/lint.h"

namespace extprop {

// Returns one log with one run. The files are named from the directory `device`, which is as the
// findings name it.
nlohmann::json SarifLog(const std::string& device, const std::vector<Finding>& findings);

}  // namespace extprop
