#include "boot/ending.h"

#include <stdint.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <new>

#include "budget.h"

namespace extprop {

namespace {

// Sanitizers have more memory than the limit to begin with.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;
#elif defined(__has_feature)
constexpr bool kIsSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kIsSanitized = false;
#endif

constexpr int kFirstStatus = kEditsFailed + 1;

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
    rlimit memory;
    if (!kIsSanitized && getrlimit(RLIMIT_DATA, &memory) == 0) {
        memory.rlim_cur = std::min<rlim_t>(memory.rlim_max, limits::kMemory);
        setrlimit(RLIMIT_DATA, &memory);
    }
    std::set_new_handler([] { EndAt(Limit::kMemory); });
}

std::string LimitOf(int exit_status) {
    const int index = exit_status - kFirstStatus;
    if (index < 0 || index >= static_cast<int>(std::size(kLimits))) return "";
    return std::to_string(kLimits[index].most) + " " + kLimits[index].of;
}

}  // namespace extprop
