// Filters of system calls (seccomp), put together statement by statement.

#pragma once

#include <errno.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/prctl.h>

#include <vector>

namespace filter {

#if defined(__x86_64__)
inline constexpr unsigned kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
inline constexpr unsigned kArchitecture = AUDIT_ARCH_AARCH64;
#else
#error "the system calls of this architecture are not known here"
#endif

constexpr sock_filter Statement(uint16_t code, uint32_t value) {
    return {code, 0, 0, value};
}

// Compares the loaded value with `value`, by BPF_JEQ or the like and without a sign, and skips the
// next `yes` statements if that holds, else `no` statements.
constexpr sock_filter JumpIf(uint16_t compare, uint32_t value, uint8_t yes, uint8_t no) {
    return {static_cast<uint16_t>(BPF_JMP | compare | BPF_K), yes, no, value};
}

constexpr sock_filter Return(uint32_t verdict) {
    return Statement(BPF_RET | BPF_K, verdict);
}

// Loads the 32 bits at this offset of the call's seccomp_data.
constexpr sock_filter Load(size_t offset) {
    return Statement(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(offset));
}

// Returns the offset at which the lower half of the argument, 0 to 5, lies.
constexpr size_t Argument(int index) {
    return offsetof(seccomp_data, args) + index * sizeof(uint64_t);
}

// What to report where filters are not possible.
inline constexpr char kNotPossible[] =
        "the kernel has no system call filters (seccomp) here; docs/containers.md lists what helps";

// Returns whether the kernel supports filters for this process.
inline bool IsPossible() {
    // There is no filter to read, so this always fails: with EFAULT only where filters are
    // supported.
    return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, nullptr) == -1 && errno == EFAULT;
}

// Puts the calling thread, and all threads and processes that it starts from now on, under the
// filter, which nothing can remove: at least one and at most BPF_MAXINSNS statements. Returns
// false, with errno set, if that fails.
inline bool Install(std::vector<sock_filter> statements) {
    const sock_fprog program = {static_cast<unsigned short>(statements.size()), statements.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

}  // namespace filter
