// EROFS directories.

#pragma once

#include <string_view>
#include <vector>

#include "erofs_head.h"
#include "file_system.h"

namespace images::erofs {

// Returns the entries in a directory's data, without "." and "..", in their order there; none if
// the data are empty. Throws Damage, which names the inode `directory`, if the data are malformed,
// or "." is not `directory`, or the names are not as CheckNames() demands.
std::vector<Name> ParseDirectory(const Head& head, uint64_t directory, std::string_view data);

}  // namespace images::erofs
