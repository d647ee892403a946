// The limits of the process that plays init: reaching one ends it, and its exit status shows which.

#pragma once

#include <string>

namespace extprop {

enum class Limit { kOpens, kOpenedBytes, kEvents, kMemory };

inline constexpr int kChangesFailed = 77;

// Ends this process because it has reached the limit.
[[noreturn]] void EndAt(Limit limit);

// Makes this process end so when it can allocate no more memory.
void EndAtMemoryLimit();

// Returns the limit that a process with this exit status reached, such as "100000 opened files", or
// "" if it reached none.
std::string LimitOf(int exit_status);

// Returns the message that the tool's own process has reached its memory limit.
std::string MemoryError();

}  // namespace extprop
