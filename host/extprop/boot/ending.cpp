#include "boot/ending.h"

#include <stdint.h>
#include <unistd.h>

#include <iterator>
#include <new>

#include "budget.h"

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
        {limits::kTold, "bytes of events"},
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
    return std::to_string(kLimits[index].most) + " " + kLimits[index].of;
}

}  // namespace extprop
