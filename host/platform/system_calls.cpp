// Wraps functions of libc, so that an observer sees each call that the unchanged extension library
// makes. The wrappers pass the calls on to libc or to the kernel, or to what replaces it: a sandbox
// that performs a call at once saves the signal by which it would learn of it.

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

#include "platform.h"

namespace {

std::atomic<platform::Observer*> g_observer{nullptr};
std::atomic<platform::SystemCalls> g_calls{nullptr};

// Makes the system call as syscall(2) does.
template <typename... Arguments>
int Call(long number, Arguments... arguments) {
    const platform::SystemCalls calls = g_calls;
    if (calls == nullptr) return static_cast<int>(syscall(number, arguments...));
    const long result = calls(number, {(unsigned long)arguments...});
    if (result >= 0) return static_cast<int>(result);
    errno = static_cast<int>(-result);
    return -1;
}

void ReportOpened(int fd) {
    if (auto* observer = platform::CurrentObserver()) observer->OnOpened(fd);
}

}  // namespace

namespace platform {

void SetObserver(Observer* observer) {
    g_observer = observer;
}

Observer* CurrentObserver() {
    return g_observer;
}

void SetSystemCalls(SystemCalls calls) {
    g_calls = calls;
}

}  // namespace platform

extern "C" {

int open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    if (auto* observer = platform::CurrentObserver()) observer->OnOpen(path, flags);
    const int fd = Call(SYS_openat, AT_FDCWD, path, flags, mode);
    if (fd != -1 && (flags & O_ACCMODE) == O_RDONLY) ReportOpened(fd);
    return fd;
}

// The name under which libbase calls it.
int open64(const char* path, int flags, ...) __attribute__((alias("open")));

int access(const char* path, int mode) noexcept {
    return Call(SYS_faccessat, AT_FDCWD, path, mode);
}

int stat(const char* path, struct stat* status) noexcept {
    return Call(SYS_newfstatat, AT_FDCWD, path, status, 0);
}

int lstat(const char* path, struct stat* status) noexcept {
    return Call(SYS_newfstatat, AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}

int fstat(int fd, struct stat* status) noexcept {
    return Call(SYS_fstat, fd, status);
}

// The name under which libbase calls it.
int fstat64(int fd, struct stat64* status) noexcept __attribute__((alias("fstat")));

// The name under which the standard library's file streams open their files.
FILE* fopen64(const char* path, const char* mode) {
    using Function = FILE* (*)(const char*, const char*);
    static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "fopen64"));
    if (auto* observer = platform::CurrentObserver()) {
        observer->OnOpen(path, mode[0] == 'r' ? O_RDONLY : O_WRONLY);
    }
    FILE* const file = next(path, mode);
    if (file != nullptr && mode[0] == 'r') ReportOpened(fileno(file));
    return file;
}

int mount(const char* source, const char* target, const char* type, unsigned long flags,
          const void* data) noexcept {
    if (auto* observer = platform::CurrentObserver()) observer->OnMounting(source, target);
    const int result = Call(SYS_mount, source, target, type, flags, data);
    const int error = result == 0 ? 0 : errno;
    if (auto* observer = platform::CurrentObserver()) {
        observer->OnMount(source, target, flags, result, error);
    }
    errno = error;
    return result;
}

}  // extern "C"
