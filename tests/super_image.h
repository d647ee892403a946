// Super partitions, written by hand.

#pragma once

#include <string>
#include <utility>
#include <vector>

// Returns a super partition with these logical partitions: names, of up to 36 bytes, and contents,
// in whole sectors of 512 bytes. Each has two extents, and the second half of its content lies
// before the first.
std::string SuperImage(const std::vector<std::pair<std::string, std::string>>& partitions);
