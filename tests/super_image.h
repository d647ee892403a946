// Super partitions, written by hand.

#pragma once

#include <string>
#include <utility>
#include <vector>

// Returns a super partition with these logical partitions, names and contents. Each has two
// extents, the second half of the content before the first. Contents must be whole sectors.
std::string SuperImage(const std::vector<std::pair<std::string, std::string>>& partitions);
