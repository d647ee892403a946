// System calls that the filter of a boxed process lets pass: those by which its own are led.

#pragma once

#include <errno.h>
#include <stdint.h>
#include <unistd.h>

#include <string>

namespace sandbox {

// What the sixth argument of such a call is. No call that is led takes six, so nothing but Kernel()
// has it there.
inline constexpr uint64_t kMark = 0x9d2f3ac8617be405;

// Makes the system call, of at most five arguments. Returns its result or, as the kernel itself
// does, a negative errno.
template <typename... Arguments>
long Kernel(long number, Arguments... arguments) {
    static_assert(sizeof...(arguments) <= 5);
    const long all[5] = {(long)arguments...};
    const long result = syscall(number, all[0], all[1], all[2], all[3], all[4], kMark);
    return result == -1 ? -errno : result;
}

}  // namespace sandbox
