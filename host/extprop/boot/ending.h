// The limits of the process that plays init: reaching one ends it, and its exit status shows which.

#pragma once

#include <string>

namespace extprop {

enum class Limit { kOpens, kOpenedBytes, kEvents, kMemory };

// The exit status of a process that could not write a file of a what-if change or a step.
inline constexpr int kChangesFailed = 77;

// Ends this process at once, without cleaning up, because it has reached the limit.
[[noreturn]] void EndAt(Limit limit);

// Makes this process end so when `operator new` can allocate no more memory.
void EndAtMemoryLimit();

// Returns the limit that a process with this exit status reached, such as "40000 opened files", or
// "" for any other status. Call it in the process that started that one: a lower limit of memory of
// its own counted there, too.
std::string LimitOf(int exit_status);

// Returns the message that the tool's own process has reached its memory limit.
std::string MemoryError();

}  // namespace extprop
