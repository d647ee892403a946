// Generated property files for the benchmarks, similar to a phone's.

#pragma once

#include <string>
#include <utility>
#include <vector>

// Returns a property file of `lines` lines, from 2 to 200,000: properties, and some comments and
// empty lines. The names of different owners, which have no "=", differ, but for one that each of
// them sets to a value of its own.
std::string SyntheticBuildProp(int lines, const std::string& owner = "phone");

// Returns the names and values in such a file, in the file's order.
std::vector<std::pair<std::string, std::string>> SplitBuildProp(const std::string& content);
