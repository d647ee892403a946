// Failed system calls as exceptions that say what failed and why.

#pragma once

#include <string>

namespace sandbox {

// Throws std::runtime_error: `what`, and what errno says.
[[noreturn]] void Fail(const std::string& what);

// Fails unless the thing was done.
void Check(bool done, const std::string& what);

// Opens the file, for this process alone, or fails naming it.
int OpenOrThrow(const std::string& path, int flags);

}  // namespace sandbox
