#include "confine.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdint.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <android-base/file.h>

#include "../budget.h"
#include "../filter.h"
#include "../sanitized.h"

namespace images {

namespace {

// A system call and the condition on one of its arguments: masked, it must be from `low` to `high`.
struct AllowedCall {
    int number;
    int argument;
    uint32_t mask;  // of the argument's lower half; 0 for no condition
    uint32_t low, high;
};

std::vector<AllowedCall> AllowedCalls(uint32_t images) {
    const uint32_t last = kFirstImage + images - 1;
    return {
            {SYS_lseek, 0, UINT32_MAX, kFirstImage, last},
            {SYS_pread64, 0, UINT32_MAX, kSpoolFile, last},
            {SYS_pwrite64, 0, UINT32_MAX, kSpoolFile, kSpoolFile},
            // sockets
            {SYS_recvmsg, 0, 0, 0, 0},
            {SYS_sendmsg, 0, 0, 0, 0},
            {SYS_ppoll, 0, 0, 0, 0},
            {SYS_close, 0, 0, 0, 0},
            // memory
            {SYS_brk, 0, 0, 0, 0},
            {SYS_mmap, 2, PROT_EXEC, 0, 0},
            {SYS_mprotect, 2, PROT_EXEC, 0, 0},
            {SYS_mremap, 0, 0, 0, 0},
            {SYS_munmap, 0, 0, 0, 0},
            {SYS_madvise, 0, 0, 0, 0},
            // the process itself
            {SYS_futex, 0, 0, 0, 0},
            {SYS_rt_sigreturn, 0, 0, 0, 0},
            {SYS_sigaltstack, 0, 0, 0, 0},  // a sanitizer calls it before an exception
            {SYS_clock_gettime, 0, 0, 0, 0},
            {SYS_getrandom, 0, 0, 0, 0},
            {SYS_setitimer, 0, 0, 0, 0},
            {SYS_exit, 0, 0, 0, 0},
            {SYS_exit_group, 0, 0, 0, 0},
    };
}

std::vector<sock_filter> Filter(uint32_t images) {
    using filter::JumpIf;
    const auto allow = filter::Return(SECCOMP_RET_ALLOW);
    const auto refuse = filter::Return(SECCOMP_RET_ERRNO | EPERM);
    std::vector<sock_filter> statements = {
            filter::Load(offsetof(seccomp_data, arch)),
            JumpIf(BPF_JEQ, filter::kArchitecture, 1, 0),
            filter::Return(SECCOMP_RET_KILL_PROCESS),
            filter::Load(offsetof(seccomp_data, nr)),
    };
    for (const auto& [number, argument, mask, low, high] : AllowedCalls(images)) {
        if (mask == 0) {
            statements.insert(statements.end(), {JumpIf(BPF_JEQ, number, 0, 1), allow});
            continue;
        }
        statements.insert(statements.end(),
                          {JumpIf(BPF_JEQ, number, 0, 6), filter::Load(filter::Argument(argument)),
                           filter::Statement(BPF_ALU | BPF_AND | BPF_K, mask),
                           JumpIf(BPF_JGE, low, 0, 2), JumpIf(BPF_JGT, high, 1, 0), allow, refuse});
    }
    statements.push_back(refuse);
    return statements;
}

// Returns the size of this process's memory in bytes, as the kernel compares it with RLIMIT_AS.
uint64_t AddressSpace() {
    std::string pages;
    android::base::ReadFileToString("/proc/self/statm", &pages);
    return strtoull(pages.c_str(), nullptr, 10) * sysconf(_SC_PAGESIZE);
}

bool SetLimits(uint64_t memory) {
    const struct {
        __rlimit_resource resource;
        uint64_t limit;
    } limits[] = {
            // A sanitizer reserves most of the address space for itself.
            {RLIMIT_AS, kIsSanitized ? RLIM_INFINITY : AddressSpace() + memory},
            {RLIMIT_CORE, 0},
            {RLIMIT_CPU, limits::kReaderSeconds},
            {RLIMIT_FSIZE, limits::kSpool},
            {RLIMIT_NOFILE, limits::kReaderDescriptors},
            {RLIMIT_NPROC, 0},
    };
    for (const auto& [resource, limit] : limits) {
        rlimit set = {};
        if (getrlimit(resource, &set) != 0) return false;
        set.rlim_cur = set.rlim_max = std::min<rlim_t>(limit, set.rlim_max);
        if (setrlimit(resource, &set) != 0) return false;
    }
    return true;
}

}  // namespace

bool Confine(const Descriptors& descriptors) {
    setsid();  // so that signals from the terminal reach the tool only
    for (int number = 1; number < NSIG; ++number) signal(number, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    if (sigprocmask(SIG_SETMASK, &none, nullptr) != 0 || !SetLimits(descriptors.memory))
        return false;

    std::vector<std::pair<int, int>> kept = {{descriptors.control, kControl},
                                             {descriptors.spool, kSpoolFile}};
    for (const int image : descriptors.images) {
        kept.emplace_back(image, kFirstImage + static_cast<int>(kept.size()) - 2);
    }
    const int first_free = kept.back().second + 1;
    // First to numbers that are nobody's target, so that none overwrites another.
    for (auto& [from, to] : kept) {
        if (from == -1) continue;
        from = fcntl(from, F_DUPFD, first_free);
        if (from == -1) return false;
    }
    for (const auto& [from, to] : kept) {
        if (from == -1 ? close(to) != 0 && errno != EBADF : dup2(from, to) == -1) return false;
    }
    // Messages that libc prints in an emergency are lost on purpose; a sanitizer's reports are not.
    if (!kIsSanitized && dup2(kFirstImage, STDERR_FILENO) == -1) return false;
    close(STDOUT_FILENO);
    if (syscall(SYS_close_range, first_free, UINT_MAX, 0) != 0) {
        if (errno != ENOSYS) return false;
        for (int fd = first_free; fd < sysconf(_SC_OPEN_MAX); ++fd) close(fd);
    }
    return filter::Install(Filter(static_cast<uint32_t>(descriptors.images.size())));
}

}  // namespace images
