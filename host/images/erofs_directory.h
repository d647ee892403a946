// EROFS directories.

#pragma once

#include <string_view>
#include <vector>

#include "erofs_head.h"
#include "file_system.h"

namespace images::erofs {

// Returns what a directory's data name, without "." and "..". Throws Damage.
std::vector<Name> ParseDirectory(const Head& head, uint64_t directory, std::string_view data);

}  // namespace images::erofs
