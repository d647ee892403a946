// System calls that the filter of a sandboxed process lets through to the kernel. Redirected calls
// are performed by means of these.

#pragma once

#include <stdint.h>

extern "C" {

// Makes the system call; extprop_kernel_call_made is the address after it. Nothing else in the
// process makes a call from there, so a filter recognises these calls by the address.
long extprop_kernel_call(long number, long a, long b, long c, long d, long e, long f);
extern const char extprop_kernel_call_made[];
}

namespace sandbox {

// Makes the system call with up to six numbers or pointers. Returns its result or, as the kernel
// itself does, a negative errno; does not touch errno.
template <typename... Arguments>
long Kernel(long number, Arguments... arguments) {
    static_assert(sizeof...(arguments) <= 6);
    const long all[6] = {(long)arguments...};
    return extprop_kernel_call(number, all[0], all[1], all[2], all[3], all[4], all[5]);
}

}  // namespace sandbox
