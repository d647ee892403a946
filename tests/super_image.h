// Super partitions, written by hand.

#pragma once

#include <string>
#include <utility>
#include <vector>

// Returns one with logical partitions, names and contents, each of two extents in the order from
// back to front. Contents are of whole sectors.
std::string SuperImage(const std::vector<std::pair<std::string, std::string>>& partitions);
