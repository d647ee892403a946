// Turns failed system calls into exceptions with what failed and why.

#pragma once

#include <string>

namespace sandbox {

// Throws std::runtime_error with `what` and the description of errno.
[[noreturn]] void Fail(const std::string& what);

// Calls Fail(what) unless `done`.
void Check(bool done, const std::string& what);

// Opens the file close-on-exec, with flags of open(2) except O_CREAT, and returns its descriptor,
// which the caller closes. Throws as Fail does, with the path.
int OpenOrThrow(const std::string& path, int flags);

}  // namespace sandbox
