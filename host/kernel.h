// System calls that the filter of a boxed process lets pass: those by which its own are led.

#pragma once

#include <stdint.h>

extern "C" {

// Makes the call, and where it has made it: nothing else in the process makes one from there, so
// that a filter can tell by the address.
long extprop_kernel_call(long number, long a, long b, long c, long d, long e, long f);
extern const char extprop_kernel_call_made[];
}

namespace sandbox {

// Makes the system call. Returns its result or, as the kernel itself does, a negative errno.
template <typename... Arguments>
long Kernel(long number, Arguments... arguments) {
    static_assert(sizeof...(arguments) <= 6);
    const long all[6] = {(long)arguments...};
    return extprop_kernel_call(number, all[0], all[1], all[2], all[3], all[4], all[5]);
}

}  // namespace sandbox
