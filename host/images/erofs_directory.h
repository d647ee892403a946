// EROFS directories.

#pragma once

#include <string_view>
#include <vector>

#include "erofs_head.h"
#include "file_system.h"

namespace images::erofs {

// Returns the entries in a directory's data, without "." and "..". Throws Damage, which names the
// inode `directory`, unless they are as FileSystem::List() promises.
std::vector<Name> ParseDirectory(const Head& head, uint64_t directory, std::string_view data);

}  // namespace images::erofs
