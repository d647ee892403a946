// Lint's findings for services that follow the quality of code from change to change.

#pragma once

#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "lint/lint.h"
#include "output/source_root.h"

namespace extprop {

// Returns a list of objects that have what these services need, and nothing else.
nlohmann::json CodeQualityReport(const std::vector<Finding>& findings, const SourceRoot& root);

}  // namespace extprop
