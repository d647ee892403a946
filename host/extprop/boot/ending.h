// How a process that plays init ends by the tool's own doing, told by its exit status.

#pragma once

#include <string>

namespace extprop {

enum class Limit { kOpens, kOpenedBytes, kTold, kMemory };

inline constexpr int kChangesFailed = 77;

// Ends this process at the limit.
[[noreturn]] void EndAt(Limit limit);

// Has this process end so where there is no more memory for it.
void EndAtMemoryLimit();

// Returns what the limit is, such as "100000 opened files", that a process with this exit status
// met; nothing if it met none.
std::string LimitOf(int exit_status);

// Says that the tool's own process met its limit.
std::string MemoryError();

}  // namespace extprop
