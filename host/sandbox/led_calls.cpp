// A filter of the kernel lets a process's calls on open files pass and turns those with paths into
// signals, whose handler does what is asked for and puts the result where the call's would be. So
// nothing that a process runs can miss the view, be it libc's own calls. Calls that reach files,
// other processes' memory or the network in other ways fail, and so does what is newer than this.

#include "led_calls.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <signal.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <ucontext.h>
#include <unistd.h>

#include <initializer_list>
#include <vector>

#include "../filter.h"
#include "../kernel.h"

namespace sandbox {

namespace {

constexpr int kLedCalls[] = {
#ifdef SYS_open  // of the older architectures
        SYS_open,    SYS_creat,     SYS_access,     SYS_stat,       SYS_lstat,  SYS_readlink,
        SYS_mkdir,   SYS_unlink,    SYS_rmdir,      SYS_chown,      SYS_lchown, SYS_chmod,
#endif
        SYS_openat,  SYS_faccessat, SYS_faccessat2, SYS_newfstatat, SYS_statx,  SYS_readlinkat,
        SYS_mkdirat, SYS_unlinkat,  SYS_fchownat,   SYS_fchmodat,   SYS_mount,
};

constexpr int kRefusedCalls[] = {
#ifdef SYS_open
        SYS_link,
        SYS_symlink,
        SYS_rename,
        SYS_mknod,
        SYS_utime,
        SYS_utimes,
        SYS_futimesat,
        SYS_inotify_init,
        SYS_uselib,
#endif
#ifdef SYS_renameat
        SYS_renameat,
#endif
        // by path
        SYS_openat2,
        SYS_linkat,
        SYS_symlinkat,
        SYS_renameat2,
        SYS_mknodat,
        SYS_utimensat,
        SYS_truncate,
        SYS_statfs,
        SYS_chdir,
        SYS_fchdir,
        SYS_chroot,
        SYS_pivot_root,
        SYS_execve,
        SYS_execveat,
        SYS_setxattr,
        SYS_lsetxattr,
        SYS_getxattr,
        SYS_lgetxattr,
        SYS_listxattr,
        SYS_llistxattr,
        SYS_removexattr,
        SYS_lremovexattr,
        SYS_inotify_add_watch,
        SYS_inotify_init1,
        SYS_fanotify_init,
        SYS_fanotify_mark,
        SYS_name_to_handle_at,
        SYS_open_by_handle_at,
        SYS_swapon,
        SYS_swapoff,
        SYS_acct,
        SYS_quotactl,
        SYS_mq_open,
        SYS_mq_unlink,
        // by descriptor, what one that was opened for reading allows
        SYS_fchown,
        SYS_fchmod,
        SYS_fsetxattr,
        SYS_fremovexattr,
        // mounts and namespaces
        SYS_umount2,
        SYS_open_tree,
        SYS_move_mount,
        SYS_fsopen,
        SYS_fsconfig,
        SYS_fsmount,
        SYS_fspick,
        SYS_mount_setattr,
        SYS_setns,
        SYS_unshare,
        // what other processes or the kernel would do for it
        SYS_socket,
        SYS_connect,
        SYS_bind,
        SYS_ptrace,
        SYS_process_vm_readv,
        SYS_process_vm_writev,
        SYS_pidfd_getfd,
        SYS_bpf,
        SYS_perf_event_open,
        SYS_userfaultfd,
        SYS_io_uring_setup,
        SYS_init_module,
        SYS_finit_module,
        SYS_delete_module,
        SYS_kexec_load,
        SYS_kexec_file_load,
        SYS_reboot,
        SYS_sethostname,
        SYS_setdomainname,
        SYS_settimeofday,
        SYS_clock_settime,
        SYS_clock_adjtime,
        SYS_adjtimex,
        SYS_syslog,
        SYS_keyctl,
        SYS_add_key,
        SYS_request_key,
};

// The requests to a device that standard streams make; others could change files.
constexpr unsigned kAllowedRequests[] = {0x5401 /* TCGETS */, 0x5413 /* TIOCGWINSZ */,
                                         0x541b /* FIONREAD */};

// Later calls are not known here.
constexpr int kLastCall = SYS_landlock_restrict_self;

// Where open directories are in the view, for the calls that start from one.
struct OpenDirectory {
    dev_t device;
    ino_t inode;
    Start start;
};

View* g_view = nullptr;
std::vector<std::pair<int, OpenDirectory>>* g_directories = nullptr;
std::mutex* g_directories_mutex = nullptr;

void KeepDirectory(int fd, const Entry& entry) {
    struct stat status;
    if (Kernel(SYS_newfstatat, fd, "", &status, AT_EMPTY_PATH) != 0) return;
    if (!S_ISDIR(status.st_mode)) return;
    std::lock_guard<std::mutex> lock(*g_directories_mutex);
    const OpenDirectory directory = {status.st_dev, status.st_ino, {entry.mount, entry.path}};
    for (auto& [known, kept] : *g_directories) {
        if (known != fd) continue;
        kept = directory;
        return;
    }
    g_directories->emplace_back(fd, directory);
}

// An allocator looks there in the middle of its work, when nothing can be allocated. A device
// directory has no such files.
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
    if (long error = Kernel(SYS_newfstatat, fd, "", &status, AT_EMPTY_PATH); error < 0)
        return error;
    std::lock_guard<std::mutex> lock(*g_directories_mutex);
    for (const auto& [known, kept] : *g_directories) {
        if (known != fd || kept.inode != status.st_ino || kept.device != status.st_dev) continue;
        *start = kept.start;
        return 0;
    }
    return -ENOTDIR;
}

long LeadOpen(int at, const char* path, int flags, mode_t mode) {
    Start start;
    if (long error = StartOf(at, path, &start); error < 0) return error;
    Entry entry;
    const long fd = g_view->Open(start, path, flags, mode, &entry);
    if (fd >= 0 && entry.is_directory()) KeepDirectory(static_cast<int>(fd), entry);
    return fd;
}

long LeadAccess(int at, const char* path, int mode) {
    Start start;
    if (long error = StartOf(at, path, &start); error < 0) return error;
    return g_view->Access(start, path, mode);
}

long LeadStatus(int at, const char* path, struct stat* status, int flags) {
    if (path != nullptr && path[0] == '\0' && (flags & AT_EMPTY_PATH) != 0) {
        return Kernel(SYS_newfstatat, at, "", status, flags);
    }
    Start start;
    if (long error = StartOf(at, path, &start); error < 0) return error;
    return g_view->Status(start, path, (flags & AT_SYMLINK_NOFOLLOW) == 0, status);
}

long LeadStatx(int at, const char* path, int flags, unsigned mask, struct statx* statx) {
    if (path != nullptr && path[0] == '\0' && (flags & AT_EMPTY_PATH) != 0) {
        return Kernel(SYS_statx, at, "", flags, mask, statx);
    }
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

// A phone's init binds; no other file system is to be had here.
long LeadMount(const char* source, const char* target, unsigned long flags) {
    if (target == nullptr) return -EFAULT;
    if ((flags & MS_BIND) == 0) return -ENODEV;
    if ((flags & MS_REMOUNT) != 0) return -EPERM;
    return g_view->Bind(source, target, (flags & MS_REC) != 0);
}

// Does what was asked for. Returns the result or a negative errno.
long Lead(int number, const unsigned long (&a)[6]) {
    const auto text = [&a](int index) { return reinterpret_cast<const char*>(a[index]); };
    const auto number_of = [&a](int index) { return static_cast<int>(a[index]); };
    const int at = number_of(0);
    switch (number) {
#ifdef SYS_open
        case SYS_open:
            return LeadOpen(AT_FDCWD, text(0), number_of(1), a[2]);
        case SYS_creat:
            return LeadOpen(AT_FDCWD, text(0), O_CREAT | O_WRONLY | O_TRUNC, a[1]);
        case SYS_access:
            return LeadAccess(AT_FDCWD, text(0), number_of(1));
        case SYS_stat:
            return LeadStatus(AT_FDCWD, text(0), reinterpret_cast<struct stat*>(a[1]), 0);
        case SYS_lstat:
            return LeadStatus(AT_FDCWD, text(0), reinterpret_cast<struct stat*>(a[1]),
                              AT_SYMLINK_NOFOLLOW);
        case SYS_readlink:
            return LeadReadLink(AT_FDCWD, text(0), reinterpret_cast<char*>(a[1]), a[2]);
        case SYS_mkdir:
            return LeadMakeDirectory(AT_FDCWD, text(0), a[1]);
        case SYS_unlink:
            return LeadRemove(AT_FDCWD, text(0), 0);
        case SYS_rmdir:
            return LeadRemove(AT_FDCWD, text(0), AT_REMOVEDIR);
        case SYS_chown:
            return LeadChangeOwner(AT_FDCWD, text(0), a[1], a[2], 0);
        case SYS_lchown:
            return LeadChangeOwner(AT_FDCWD, text(0), a[1], a[2], AT_SYMLINK_NOFOLLOW);
        case SYS_chmod:
            return LeadChangeMode(AT_FDCWD, text(0), a[1]);
#endif
        case SYS_openat:
            return LeadOpen(at, text(1), number_of(2), a[3]);
        case SYS_faccessat:
        case SYS_faccessat2:
            return LeadAccess(at, text(1), number_of(2));
        case SYS_newfstatat:
            return LeadStatus(at, text(1), reinterpret_cast<struct stat*>(a[2]), number_of(3));
        case SYS_statx:
            return LeadStatx(at, text(1), number_of(2), a[3],
                             reinterpret_cast<struct statx*>(a[4]));
        case SYS_readlinkat:
            return LeadReadLink(at, text(1), reinterpret_cast<char*>(a[2]), a[3]);
        case SYS_mkdirat:
            return LeadMakeDirectory(at, text(1), a[2]);
        case SYS_unlinkat:
            return LeadRemove(at, text(1), number_of(2));
        case SYS_fchownat:
            return LeadChangeOwner(at, text(1), a[2], a[3], number_of(4));
        case SYS_fchmodat:
            return LeadChangeMode(at, text(1), a[2]);
        case SYS_mount:
            return LeadMount(text(0), text(1), a[3]);
        default:
            return -ENOSYS;
    }
}

void OnCall(int, siginfo_t* info, void* context) {
    const int saved_errno = errno;
    auto& machine = static_cast<ucontext_t*>(context)->uc_mcontext;
#if defined(__x86_64__)
    auto& r = machine.gregs;
    const unsigned long arguments[6] = {
            static_cast<unsigned long>(r[REG_RDI]), static_cast<unsigned long>(r[REG_RSI]),
            static_cast<unsigned long>(r[REG_RDX]), static_cast<unsigned long>(r[REG_R10]),
            static_cast<unsigned long>(r[REG_R8]),  static_cast<unsigned long>(r[REG_R9])};
    auto& result = r[REG_RAX];
#else
    auto& r = machine.regs;
    const unsigned long arguments[6] = {r[0], r[1], r[2], r[3], r[4], r[5]};
    auto& result = r[0];
#endif
    result = Lead(info->si_syscall, arguments);
    errno = saved_errno;
}

std::vector<sock_filter> Filter() {
    using filter::JumpIf;
    using filter::Load;
    constexpr size_t kLastArgument = filter::Argument(5);
    const sock_filter refuse = filter::Return(SECCOMP_RET_ERRNO | EPERM);
    const sock_filter unknown = filter::Return(SECCOMP_RET_ERRNO | ENOSYS);
    const sock_filter allow = filter::Return(SECCOMP_RET_ALLOW);

    std::vector<sock_filter> statements = {
            Load(offsetof(seccomp_data, arch)),
            JumpIf(BPF_JEQ, filter::kArchitecture, 1, 0),
            unknown,
            Load(offsetof(seccomp_data, nr)),
            JumpIf(BPF_JGT, kLastCall, 0, 1),
            unknown,
    };
    const auto answer = [&statements](std::initializer_list<sock_filter> answer, int call) {
        statements.push_back(JumpIf(BPF_JEQ, call, 0, answer.size()));
        statements.insert(statements.end(), answer);
    };
    // Kernel()'s own.
    const sock_filter trap = filter::Return(SECCOMP_RET_TRAP);
    const auto answer_unmarked = [&](const sock_filter& verdict, int call) {
        answer({Load(kLastArgument), JumpIf(BPF_JEQ, static_cast<uint32_t>(kMark), 0, 3),
                Load(kLastArgument + 4), JumpIf(BPF_JEQ, static_cast<uint32_t>(kMark >> 32), 0, 1),
                allow, verdict},
               call);
    };
    for (const int call : kLedCalls) answer_unmarked(trap, call);
    for (const int call : kRefusedCalls) answer_unmarked(refuse, call);
    statements.push_back(JumpIf(BPF_JEQ, SYS_ioctl, 0, 1 + 2 * std::size(kAllowedRequests) + 1));
    statements.push_back(Load(filter::Argument(1)));
    for (const unsigned request : kAllowedRequests) {
        statements.push_back(JumpIf(BPF_JEQ, request, 0, 1));
        statements.push_back(allow);
    }
    statements.push_back(refuse);
    statements.push_back(allow);
    return statements;
}

}  // namespace

bool CanLeadCalls() {
    return filter::IsPossible();
}

bool LeadCalls(View* view) {
    g_view = view;
    g_directories = new std::vector<std::pair<int, OpenDirectory>>();
    g_directories_mutex = new std::mutex();

    struct sigaction action = {};
    action.sa_sigaction = OnCall;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigfillset(&action.sa_mask);  // what another handler asks for waits for this one
    if (sigaction(SIGSYS, &action, nullptr) != 0) return false;
    // A sanitizer has put its own handler before this one, and would hold the signal back.
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

    return filter::Install(Filter());
}

}  // namespace sandbox
