// What differs between two boots.

#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace extprop {

// Returns, for the reports of two traced boots, {"format", "added", "removed", "changed"}: the
// properties that only the second has, only the first, and both with another value. Each has its
// "name" and, under "a" and "b", the value and its origin, null where there is none.
nlohmann::json Diff(const nlohmann::json& a, const nlohmann::json& b);

// Whether such a difference is none.
bool IsEmpty(const nlohmann::json& difference);

// Returns the difference as text.
std::string DifferenceText(const nlohmann::json& difference);

}  // namespace extprop
