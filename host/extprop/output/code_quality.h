// Lint's findings in the format of services that follow code quality from change to change.

#pragma once

#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "lint/lint.h"
#include "output/source_root.h"

namespace extprop {

// Returns a list with an object for each finding, which has only the fields that these services
// need. The paths in it may be any bytes, which JsonText() prints.
nlohmann::json CodeQualityReport(const std::vector<Finding>& findings, const SourceRoot& root);

}  // namespace extprop
