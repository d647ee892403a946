#include "boot/ending.h"

#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <new>

#include "budget.h"
#include "process.h"

namespace extprop {

namespace {

constexpr int kFirstStatus = kChangesFailed + 1;

// In the order of Limit.
constexpr struct {
    uint64_t most;
    const char* of;
} kLimits[] = {
        {limits::kOpens, "opened files"},
        {limits::kOpenedBytes, "bytes in opened files"},
        {limits::kEvents, "bytes of events"},
        {limits::kMemory, "bytes of memory"},
};

}  // namespace

void EndAt(Limit limit) {
    _exit(kFirstStatus + static_cast<int>(limit));
}

void EndAtMemoryLimit() {
    std::set_new_handler([] { EndAt(Limit::kMemory); });
}

std::string LimitOf(int exit_status) {
    const int index = exit_status - kFirstStatus;
    if (index < 0 || index >= static_cast<int>(std::size(kLimits))) return "";
    // The limit is lower if the process that started it has a lower one.
    const uint64_t most = index == static_cast<int>(Limit::kMemory)
                                  ? std::min(kLimits[index].most, sandbox::MemoryLimit())
                                  : kLimits[index].most;
    return std::to_string(most) + " " + kLimits[index].of;
}

std::string MemoryError() {
    return "this takes more than " + std::to_string(sandbox::MemoryLimit()) +
           " bytes of memory, which is the limit; ask for less, such as fewer properties";
}

}  // namespace extprop
