// Redirects the system calls of a process. A filter in the kernel lets calls on open files pass and
// turns calls with paths into signals. The signal's handler performs the call in the view and puts
// the result where the call's would be. So every call acts on the view, even those that libc makes
// for itself. Calls that the table does not list fail: those that would reach files, processes or
// the network in other ways, and those that are newer than this code.

#include "led_calls.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <ucontext.h>
#include <unistd.h>

#include <map>
#include <mutex>
#include <optional>
#include <vector>

#include "../filter.h"
#include "../kernel.h"

namespace sandbox {

namespace {

// The ioctl requests that standard streams make; others could change files.
constexpr unsigned kTerminalRequests[] = {0x5401 /* TCGETS */, 0x5413 /* TIOCGWINSZ */,
                                          0x541b /* FIONREAD */};

// An open file or directory of the view: where relative paths start, and whose names and status may
// not be the kernel's.
struct OpenPlace {
    dev_t device;
    ino_t inode;
    Start start;
    size_t next = 0;  // the name to list next, where the view lists the names
};

View* g_view = nullptr;
std::map<int, OpenPlace>* g_places = nullptr;
std::mutex* g_places_mutex = nullptr;

long KernelStatus(int fd, struct stat* status) {
    return Kernel(SYS_newfstatat, fd, "", status, AT_EMPTY_PATH);
}

void RecordPlace(int fd, const ResolvedPath& entry) {
    struct stat status;
    if (KernelStatus(fd, &status) != 0) return;
    std::lock_guard<std::mutex> lock(*g_places_mutex);
    (*g_places)[fd] = {status.st_dev, status.st_ino, {entry.mount, entry.path}};
}

// Returns what is recorded of the open file, or null. Call it with the mutex held.
OpenPlace* PlaceOf(int fd, const struct stat& status) {
    const auto known = g_places->find(fd);
    // The descriptor may belong to another file by now.
    if (known == g_places->end() || known->second.inode != status.st_ino ||
        known->second.device != status.st_dev) {
        return nullptr;
    }
    return &known->second;
}

// Returns whether the path is one of this machine's kernel, which no device directory has. An
// allocator opens such files in the middle of its work, when the view could allocate nothing.
bool IsOfThisMachine(const char* path) {
    for (const char* directory : {"/proc/self/", "/proc/sys/", "/sys/kernel/"}) {
        if (strncmp(path, directory, strlen(directory)) == 0) return true;
    }
    return false;
}

// Finds where a path starts. Returns 0 or a negative errno.
long StartOf(int fd, const char* path, Start* start) {
    if (path == nullptr) return -EFAULT;
    if (path[0] == '/') return IsOfThisMachine(path) ? -ENOENT : 0;
    if (fd == AT_FDCWD) return 0;
    struct stat status;
    if (long error = KernelStatus(fd, &status); error < 0) return error;
    std::lock_guard<std::mutex> lock(*g_places_mutex);
    const OpenPlace* place = PlaceOf(fd, status);
    if (place == nullptr) return -ENOTDIR;
    *start = place->start;
    return 0;
}

long LeadOpen(int at, const char* path, int flags, mode_t mode) {
    Start start;
    if (long error = StartOf(at, path, &start); error < 0) return error;
    ResolvedPath entry;
    const long fd = g_view->Open(start, path, flags, mode, &entry);
    const bool is_kept = entry.is_directory() || !g_view->is_kernels({entry.mount, entry.path});
    if (fd >= 0 && is_kept) RecordPlace(static_cast<int>(fd), entry);
    return fd;
}

long LeadAccess(int at, const char* path, int mode) {
    Start start;
    if (long error = StartOf(at, path, &start); error < 0) return error;
    return g_view->Access(start, path, mode);
}

// The status of an open file.
long LeadStatusOf(int fd, struct stat* status) {
    if (long error = KernelStatus(fd, status); error < 0) return error;
    Start start;
    {
        std::lock_guard<std::mutex> lock(*g_places_mutex);
        const OpenPlace* place = PlaceOf(fd, *status);
        if (place == nullptr || g_view->is_kernels(place->start)) return 0;
        start = place->start;
    }
    return g_view->StatusOf(start, status);
}

long LeadStatus(int at, const char* path, struct stat* status, int flags) {
    if (path != nullptr && path[0] == '\0' && (flags & AT_EMPTY_PATH) != 0) {
        return LeadStatusOf(at, status);
    }
    Start start;
    if (long error = StartOf(at, path, &start); error < 0) return error;
    return g_view->Status(start, path, (flags & AT_SYMLINK_NOFOLLOW) == 0, status);
}

long LeadStatx(int at, const char* path, int flags, struct statx* statx) {
    struct stat status;
    if (long error = LeadStatus(at, path, &status, flags); error < 0) return error;
    memset(statx, 0, sizeof(*statx));
    statx->stx_mask = STATX_BASIC_STATS;
    statx->stx_blksize = status.st_blksize;
    statx->stx_nlink = status.st_nlink;
    statx->stx_uid = status.st_uid;
    statx->stx_gid = status.st_gid;
    statx->stx_mode = status.st_mode;
    statx->stx_ino = status.st_ino;
    statx->stx_size = status.st_size;
    statx->stx_blocks = status.st_blocks;
    statx->stx_atime = {status.st_atim.tv_sec, static_cast<uint32_t>(status.st_atim.tv_nsec), {}};
    statx->stx_mtime = {status.st_mtim.tv_sec, static_cast<uint32_t>(status.st_mtim.tv_nsec), {}};
    statx->stx_ctime = {status.st_ctim.tv_sec, static_cast<uint32_t>(status.st_ctim.tv_nsec), {}};
    statx->stx_rdev_major = major(status.st_rdev);
    statx->stx_rdev_minor = minor(status.st_rdev);
    statx->stx_dev_major = major(status.st_dev);
    statx->stx_dev_minor = minor(status.st_dev);
    return 0;
}

long LeadReadLink(int at, const char* path, char* target, size_t size) {
    Start start;
    if (long error = StartOf(at, path, &start); error < 0) return error;
    return g_view->ReadLink(start, path, target, size);
}

long LeadMakeDirectory(int at, const char* path, mode_t mode) {
    Start start;
    if (long error = StartOf(at, path, &start); error < 0) return error;
    return g_view->MakeDirectory(start, path, mode);
}

long LeadRemove(int at, const char* path, int flags) {
    Start start;
    if (long error = StartOf(at, path, &start); error < 0) return error;
    return g_view->Remove(start, path, (flags & AT_REMOVEDIR) != 0);
}

long LeadChangeOwner(int at, const char* path, uid_t user, gid_t group, int flags) {
    Start start;
    if (long error = StartOf(at, path, &start); error < 0) return error;
    return g_view->ChangeOwner(start, path, (flags & AT_SYMLINK_NOFOLLOW) == 0, user, group);
}

long LeadChangeMode(int at, const char* path, mode_t mode) {
    Start start;
    if (long error = StartOf(at, path, &start); error < 0) return error;
    return g_view->ChangeMode(start, path, mode);
}

// Only bind mounts are supported, since a phone's init makes no others here.
long LeadMount(const char* source, const char* target, unsigned long flags) {
    if (target == nullptr) return -EFAULT;
    if ((flags & MS_BIND) == 0) return -ENODEV;
    if ((flags & MS_REMOUNT) != 0) return -EPERM;
    return g_view->Bind(source, target, (flags & MS_REC) != 0);
}

// Lists a directory whose names the kernel does not have.
long LeadList(int fd, char* buffer, size_t size) {
    struct stat status;
    if (long error = KernelStatus(fd, &status); error < 0) return error;
    std::lock_guard<std::mutex> lock(*g_places_mutex);
    OpenPlace* place = PlaceOf(fd, status);
    if (place == nullptr || g_view->is_kernels(place->start)) {
        return Kernel(SYS_getdents64, fd, buffer, size);
    }
    return g_view->ReadDirectory(place->start, &place->next, buffer, size);
}

long LeadSeek(int fd, off_t offset, int whence) {
    struct stat status;
    if (long error = KernelStatus(fd, &status); error < 0) return error;
    if (S_ISDIR(status.st_mode)) {
        std::lock_guard<std::mutex> lock(*g_places_mutex);
        OpenPlace* place = PlaceOf(fd, status);
        if (place != nullptr && !g_view->is_kernels(place->start)) {
            if (whence == SEEK_CUR) offset += static_cast<off_t>(place->next);
            if (whence != SEEK_SET && whence != SEEK_CUR) return -EINVAL;
            if (offset < 0) return -EINVAL;
            place->next = offset;
            return offset;
        }
    }
    return Kernel(SYS_lseek, fd, offset, whence);
}

// A condition on an argument of a call.
struct Condition {
    int argument;
    uint32_t mask;  // on its lower half; kWhole tests all 64 bits
    std::vector<uint32_t> values;
};

constexpr uint32_t kWhole = 0;  // all 64 bits are 0

// A call that sandboxed processes may make. If it meets the condition, or has none, the kernel
// performs it or, where it has a handler, the handler does and returns the result or a negative
// errno. Otherwise it fails with ENOSYS, after which libc tries another call if there is one. Calls
// with a handler and those of kKernelOnly reach the kernel if Kernel() makes them. Calls of
// kOpenFile have a handler only where an open file may not be the kernel's.
struct Call {
    enum Who { kAll, kKernelOnly, kOpenFile };
    int number;
    Who who = kAll;
    long (*lead)(const Arguments& a) = nullptr;
    std::optional<Condition> condition = {};
};

const std::vector<Call>& Calls() {
    static const auto text = [](unsigned long a) { return reinterpret_cast<const char*>(a); };
    static const auto number = [](unsigned long a) { return static_cast<int>(a); };
    static const auto status = [](unsigned long a) { return reinterpret_cast<struct stat*>(a); };
    static const auto bytes = [](unsigned long a) { return reinterpret_cast<char*>(a); };
    constexpr auto kLed = Call::kAll;
    const auto own = static_cast<uint32_t>(getpid());
    static const std::vector<Call> calls = {
#ifdef SYS_open  // older architectures have these too
            {SYS_open, kLed,
             [](const Arguments& a) { return LeadOpen(AT_FDCWD, text(a[0]), number(a[1]), a[2]); }},
            {SYS_creat, kLed,
             [](const Arguments& a) {
                 return LeadOpen(AT_FDCWD, text(a[0]), O_CREAT | O_WRONLY | O_TRUNC, a[1]);
             }},
            {SYS_access, kLed,
             [](const Arguments& a) { return LeadAccess(AT_FDCWD, text(a[0]), number(a[1])); }},
            {SYS_stat, kLed,
             [](const Arguments& a) { return LeadStatus(AT_FDCWD, text(a[0]), status(a[1]), 0); }},
            {SYS_lstat, kLed,
             [](const Arguments& a) {
                 return LeadStatus(AT_FDCWD, text(a[0]), status(a[1]), AT_SYMLINK_NOFOLLOW);
             }},
            {SYS_readlink, kLed,
             [](const Arguments& a) {
                 return LeadReadLink(AT_FDCWD, text(a[0]), bytes(a[1]), a[2]);
             }},
            {SYS_mkdir, kLed,
             [](const Arguments& a) { return LeadMakeDirectory(AT_FDCWD, text(a[0]), a[1]); }},
            {SYS_unlink, kLed,
             [](const Arguments& a) { return LeadRemove(AT_FDCWD, text(a[0]), 0); }},
            {SYS_rmdir, kLed,
             [](const Arguments& a) { return LeadRemove(AT_FDCWD, text(a[0]), AT_REMOVEDIR); }},
            {SYS_chown, kLed,
             [](const Arguments& a) {
                 return LeadChangeOwner(AT_FDCWD, text(a[0]), a[1], a[2], 0);
             }},
            {SYS_lchown, kLed,
             [](const Arguments& a) {
                 return LeadChangeOwner(AT_FDCWD, text(a[0]), a[1], a[2], AT_SYMLINK_NOFOLLOW);
             }},
            {SYS_chmod, kLed,
             [](const Arguments& a) { return LeadChangeMode(AT_FDCWD, text(a[0]), a[1]); }},
#endif
            {SYS_openat, kLed,
             [](const Arguments& a) {
                 return LeadOpen(number(a[0]), text(a[1]), number(a[2]), a[3]);
             }},
            {SYS_faccessat, kLed,
             [](const Arguments& a) { return LeadAccess(number(a[0]), text(a[1]), number(a[2])); }},
            {SYS_faccessat2, kLed,
             [](const Arguments& a) { return LeadAccess(number(a[0]), text(a[1]), number(a[2])); }},
            {SYS_newfstatat, kLed,
             [](const Arguments& a) {
                 return LeadStatus(number(a[0]), text(a[1]), status(a[2]), number(a[3]));
             }},
            {SYS_statx, kLed,
             [](const Arguments& a) {
                 return LeadStatx(number(a[0]), text(a[1]), number(a[2]),
                                  reinterpret_cast<struct statx*>(a[4]));
             }},
            {SYS_readlinkat, kLed,
             [](const Arguments& a) {
                 return LeadReadLink(number(a[0]), text(a[1]), bytes(a[2]), a[3]);
             }},
            {SYS_mkdirat, kLed,
             [](const Arguments& a) { return LeadMakeDirectory(number(a[0]), text(a[1]), a[2]); }},
            {SYS_unlinkat, kLed,
             [](const Arguments& a) { return LeadRemove(number(a[0]), text(a[1]), number(a[2])); }},
            {SYS_fchownat, kLed,
             [](const Arguments& a) {
                 return LeadChangeOwner(number(a[0]), text(a[1]), a[2], a[3], number(a[4]));
             }},
            {SYS_fchmodat, kLed,
             [](const Arguments& a) { return LeadChangeMode(number(a[0]), text(a[1]), a[2]); }},
            {SYS_mount, kLed,
             [](const Arguments& a) { return LeadMount(text(a[0]), text(a[1]), a[3]); }},
            {SYS_fstat, Call::kOpenFile,
             [](const Arguments& a) { return LeadStatusOf(number(a[0]), status(a[1])); }},
            {SYS_getdents64, Call::kOpenFile,
             [](const Arguments& a) { return LeadList(number(a[0]), bytes(a[1]), a[2]); }},
            {SYS_lseek, Call::kOpenFile,
             [](const Arguments& a) {
                 return LeadSeek(number(a[0]), static_cast<off_t>(a[1]), number(a[2]));
             }},

            // What the view and the image readers call through Kernel().
            {SYS_symlinkat, Call::kKernelOnly},
            {SYS_mknodat, Call::kKernelOnly},
            {SYS_renameat2, Call::kKernelOnly},
            {SYS_utimensat, Call::kKernelOnly},
            {SYS_fchmod, Call::kKernelOnly},
            {SYS_ftruncate, Call::kKernelOnly},
            {SYS_sendfile, Call::kKernelOnly},
            {SYS_memfd_create, Call::kKernelOnly},
            {SYS_socketpair, Call::kKernelOnly},
            {SYS_sendmsg, Call::kKernelOnly},
            {SYS_recvmsg, Call::kKernelOnly},

            // Open files.
            {SYS_read},
            {SYS_write},
            {SYS_readv},
            {SYS_writev},
            {SYS_pread64},
            {SYS_pwrite64},
            {SYS_close},
            {SYS_dup},
            {SYS_dup3},
            {SYS_pipe2},
            {SYS_fsync},
            {SYS_fdatasync},
            {SYS_ppoll},
            {SYS_pselect6},
#ifdef SYS_open
            {SYS_dup2},
            {SYS_pipe},
            {SYS_poll},
            {SYS_select},
            {SYS_pause},
            {SYS_time},
            {SYS_getpgrp},
#endif
            {SYS_fcntl, Call::kAll, nullptr,
             Condition{
                     1,
                     ~0u,
                     {F_DUPFD, F_DUPFD_CLOEXEC, F_GETFD, F_SETFD, F_GETFL, F_SETFL, F_ADD_SEALS}}},
            {SYS_ioctl, Call::kAll, nullptr,
             Condition{1, ~0u, {std::begin(kTerminalRequests), std::end(kTerminalRequests)}}},
            // Only to the other end of a connected socket.
            {SYS_sendto, Call::kAll, nullptr, Condition{4, kWhole, {0}}},

            // Memory.
            {SYS_mmap},
            {SYS_munmap},
            {SYS_mprotect},
            {SYS_mremap},
            {SYS_madvise},
            {SYS_msync},
            {SYS_mincore},
            {SYS_brk},
            {SYS_membarrier},

            // Threads, but no other processes.
            {SYS_clone, Call::kAll, nullptr,
             Condition{0, CLONE_VM | CLONE_THREAD, {CLONE_VM | CLONE_THREAD}}},
            {SYS_futex},
            {SYS_set_robust_list},
            {SYS_rseq},
            {SYS_set_tid_address},
            {SYS_sched_yield},
            {SYS_sched_getaffinity},
            {SYS_getcpu},
            {SYS_exit},
            {SYS_exit_group},

            // Signals, to this process only.
            {SYS_kill, Call::kAll, nullptr, Condition{0, ~0u, {own}}},
            {SYS_tgkill, Call::kAll, nullptr, Condition{0, ~0u, {own}}},
            {SYS_rt_sigaction},
            {SYS_rt_sigprocmask},
            {SYS_rt_sigreturn},
            {SYS_rt_sigsuspend},
            {SYS_rt_sigtimedwait},
            {SYS_rt_sigpending},
            {SYS_sigaltstack},
            {SYS_restart_syscall},

            // Time and the process's own identity.
            {SYS_nanosleep},
            {SYS_clock_nanosleep},
            {SYS_clock_gettime},
            {SYS_clock_getres},
            {SYS_gettimeofday},
            {SYS_times},
            {SYS_getrusage},
            {SYS_getpid},
            {SYS_gettid},
            {SYS_getppid},
            {SYS_getuid},
            {SYS_geteuid},
            {SYS_getgid},
            {SYS_getegid},
            {SYS_getgroups},
            {SYS_getcwd},
            {SYS_umask},
            {SYS_uname},
            {SYS_sysinfo},
            {SYS_getrandom},
#ifdef SYS_getrlimit
            {SYS_getrlimit},
#endif
            {SYS_prlimit64, Call::kAll, nullptr, Condition{2, kWhole, {0}}},
            {SYS_prctl, Call::kAll, nullptr,
             Condition{0, ~0u, {PR_SET_NAME, PR_GET_NAME, PR_SET_VMA}}},
    };
    return calls;
}

// The handlers, by the call's number.
long (*g_leads[512])(const Arguments& a) = {};

void OnCall(int, siginfo_t* info, void* context) {
    const int saved_errno = errno;
    auto& machine = static_cast<ucontext_t*>(context)->uc_mcontext;
#if defined(__x86_64__)
    auto& r = machine.gregs;
    const Arguments arguments = {
            static_cast<unsigned long>(r[REG_RDI]), static_cast<unsigned long>(r[REG_RSI]),
            static_cast<unsigned long>(r[REG_RDX]), static_cast<unsigned long>(r[REG_R10]),
            static_cast<unsigned long>(r[REG_R8]),  static_cast<unsigned long>(r[REG_R9])};
    auto& result = r[REG_RAX];
#else
    auto& r = machine.regs;
    const Arguments arguments = {r[0], r[1], r[2], r[3], r[4], r[5]};
    auto& result = r[0];
#endif
    result = LeadCall(info->si_syscall, arguments);
    errno = saved_errno;
}

// With `has_only_kernels` every open file is the kernel's.
std::vector<sock_filter> Filter(bool has_only_kernels) {
    using filter::JumpIf;
    using filter::Load;
    // The address after the one instruction by which Kernel() makes its calls.
    const auto kernel_place = reinterpret_cast<uintptr_t>(extprop_kernel_call_made);
    const sock_filter allow = filter::Return(SECCOMP_RET_ALLOW);
    const sock_filter trap = filter::Return(SECCOMP_RET_TRAP);
    const sock_filter unknown = filter::Return(SECCOMP_RET_ERRNO | ENOSYS);

    const auto if_whole_is = [](size_t offset, uint64_t value, const sock_filter& verdict) {
        return std::vector<sock_filter>{
                Load(offset),
                JumpIf(BPF_JEQ, static_cast<uint32_t>(value), 0, 3),
                Load(offset + sizeof(uint32_t)),
                JumpIf(BPF_JEQ, static_cast<uint32_t>(value >> 32), 0, 1),
                verdict,
        };
    };
    // The answers that many calls share stand once, at the end: the kernel compiles the filter for
    // each process, and runs it through once for each call that exists.
    std::vector<sock_filter> statements, answers;
    const auto add = [](const std::vector<sock_filter>& more, std::vector<sock_filter>* to) {
        to->insert(to->end(), more.begin(), more.end());
        return to->size();
    };
    const auto if_kernel_place =
            if_whole_is(offsetof(seccomp_data, instruction_pointer), kernel_place, allow);
    const size_t if_all = add({unknown}, &answers);
    const size_t if_kernel_only = add({allow}, &answers);
    add(if_kernel_place, &answers);
    const size_t if_led = add({unknown}, &answers);
    add(if_kernel_place, &answers);
    add({trap}, &answers);

    add({Load(offsetof(seccomp_data, arch)), JumpIf(BPF_JEQ, filter::kArchitecture, 1, 0), unknown,
         Load(offsetof(seccomp_data, nr))},
        &statements);
    std::vector<std::pair<int, size_t>> numbers;  // with the places of their answers
    for (const Call& call : Calls()) {
        std::vector<sock_filter> answer;
        if (call.who == Call::kKernelOnly) {
            numbers.emplace_back(call.number, if_kernel_only);
        } else if (call.lead != nullptr && !(call.who == Call::kOpenFile && has_only_kernels)) {
            numbers.emplace_back(call.number, if_led);
        } else if (!call.condition) {
            numbers.emplace_back(call.number, if_all);
        } else if (call.condition->mask == kWhole) {
            add(if_whole_is(filter::Argument(call.condition->argument), 0, allow), &answer);
        } else {
            add({Load(filter::Argument(call.condition->argument)),
                 filter::Statement(BPF_ALU | BPF_AND | BPF_K, call.condition->mask)},
                &answer);
            for (const uint32_t value : call.condition->values) {
                add({JumpIf(BPF_JEQ, value, 0, 1), allow}, &answer);
            }
        }
        if (answer.empty()) continue;
        add({unknown}, &answer);
        add({JumpIf(BPF_JEQ, call.number, 0, answer.size())}, &statements);
        add(answer, &statements);
    }
    for (size_t i = 0; i < numbers.size(); ++i) {
        const size_t left = numbers.size() - 1 - i;
        add({JumpIf(BPF_JEQ, numbers[i].first, left + numbers[i].second, 0)}, &statements);
    }
    add(answers, &statements);
    return statements;
}

}  // namespace

bool CanLeadCalls() {
    return filter::IsPossible();
}

long LeadCall(long number, const Arguments& arguments) {
    const bool known = number >= 0 && static_cast<size_t>(number) < std::size(g_leads) &&
                       g_leads[number] != nullptr;
    return known ? g_leads[number](arguments) : -ENOSYS;
}

bool LeadCalls(View* view) {
    g_view = view;
    g_places = new std::map<int, OpenPlace>();
    g_places_mutex = new std::mutex();
    for (const Call& call : Calls()) g_leads[call.number] = call.lead;

    struct sigaction action = {};
    action.sa_sigaction = OnCall;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigfillset(&action.sa_mask);  // no other handler runs in this one
    if (sigaction(SIGSYS, &action, nullptr) != 0) return false;
    // A sanitizer wraps sigaction() with a handler of its own, which would delay the signal.
    struct {
        void (*handler)(int, siginfo_t*, void*);
        unsigned long others[3];
    } installed;
    constexpr size_t kMaskSize = 8;
    if (syscall(SYS_rt_sigaction, SIGSYS, nullptr, &installed, kMaskSize) != 0) return false;
    installed.handler = OnCall;
    if (syscall(SYS_rt_sigaction, SIGSYS, &installed, nullptr, kMaskSize) != 0) return false;
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGSYS);
    if (pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr) != 0) return false;

    return filter::Install(Filter(view->has_only_kernels()));
}

}  // namespace sandbox
