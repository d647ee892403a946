#include "faults.h"

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>

namespace faults {

namespace {

std::atomic<bool> g_armed{false};
std::atomic<int> g_threads{0};
std::mutex g_mutex;  // guards the variables below
Fault g_fault;
std::vector<Call> g_calls;
std::map<int, std::string> g_paths;  // of the descriptors that were opened since

void Kill() {
    kill(getpid(), SIGKILL);
}

std::string PathOf(int fd) {
    std::lock_guard<std::mutex> lock(g_mutex);
    auto entry = g_paths.find(fd);
    return entry == g_paths.end() ? "" : entry->second;
}

void Opened(int fd, const char* path) {
    if (!g_armed || fd == -1) return;
    std::lock_guard<std::mutex> lock(g_mutex);
    g_paths[fd] = path;
}

void Closed(int fd) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_paths.erase(fd);
}

// Records the call and makes it, unless it is to fail.
template <typename Result, typename Action>
Result Make(const char* name, const std::string& path, Result failed, Action action,
            bool writes = false, bool made_all_the_same = false) {
    if (!g_armed || path.empty()) return action(false);
    size_t index;
    bool chosen;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        index = g_calls.size();
        g_calls.push_back({name, path, writes});
        chosen = g_fault.call == static_cast<int>(index) ||
                 (g_fault.path == path && (g_fault.name.empty() || g_fault.name == name));
    }
    if (chosen && g_fault.kill == Fault::kBefore) Kill();
    const bool fails = chosen && g_fault.error != 0;
    Result result = failed;
    if (!fails || made_all_the_same) result = action(chosen && g_fault.cut);
    if (fails) {
        result = failed;
        errno = g_fault.error;
    } else if (result != failed) {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_calls[index].succeeded = true;
    }
    if (chosen && g_fault.kill == Fault::kAfter) Kill();
    return result;
}

// Returns the definition of the function after this one.
template <typename Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

constexpr char kNoCloseOnExec[] = "open without O_CLOEXEC";

int Open(const char* path, int flags, mode_t mode) {
    static auto* const next = Next<int(const char*, int, ...)>("open");
    const bool writes = (flags & O_ACCMODE) != O_RDONLY;
    const char* name = (flags & O_CLOEXEC) != 0 ? "open" : kNoCloseOnExec;
    const int fd = Make(
            name, path, -1, [&](bool) { return next(path, flags, mode); }, writes);
    Opened(fd, path);
    return fd;
}

mode_t ModeArgument(int flags, va_list arguments) {
    return (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
}

struct Thread {
    void* (*routine)(void*);
    void* argument;
};

void* RunThread(void* argument) {
    const Thread thread = *static_cast<Thread*>(argument);
    delete static_cast<Thread*>(argument);
    void* result = thread.routine(thread.argument);
    --g_threads;
    return result;
}

}  // namespace

bool Changes(const Call& call) {
    constexpr const char* kChanging[] = {"write", "mkdir", "unlink", "lchown"};
    return call.writes || std::any_of(std::begin(kChanging), std::end(kChanging),
                                      [&](const char* name) { return call.name == name; });
}

void Arm(const Fault& fault) {
    g_fault = fault;
    g_calls.clear();
    g_armed = true;
}

std::vector<Call> Disarm() {
    g_armed = false;
    return g_calls;
}

bool ThreadsEnded() {
    return g_threads == 0;
}

}  // namespace faults

// Calls by path, and calls by descriptor.
#define BY_PATH(symbol, name, parameters, arguments)                               \
    int symbol parameters noexcept {                                               \
        static auto* const next = faults::Next<int parameters>(#symbol);           \
        return faults::Make(name, path, -1, [&](bool) { return next arguments; }); \
    }
#define BY_DESCRIPTOR(type, symbol, name, parameters, arguments)          \
    type symbol parameters {                                              \
        static auto* const next = faults::Next<type parameters>(#symbol); \
        return faults::Make<type>(name, faults::PathOf(fd), -1,           \
                                  [&](bool) { return next arguments; });  \
    }

extern "C" {

using faults::Make;
using faults::Next;

BY_PATH(access, "access", (const char* path, int mode), (path, mode))
BY_PATH(lstat, "fstat", (const char* path, struct stat* status), (path, status))
BY_PATH(mkdir, "mkdir", (const char* path, mode_t mode), (path, mode))
BY_PATH(unlink, "unlink", (const char* path), (path))
BY_PATH(lchown, "lchown", (const char* path, uid_t user, gid_t group), (path, user, group))
BY_DESCRIPTOR(int, fstat, "fstat", (int fd, struct stat* status) noexcept, (fd, status))
BY_DESCRIPTOR(int, fstat64, "fstat", (int fd, struct stat64* status) noexcept, (fd, status))
BY_DESCRIPTOR(off_t, lseek, "lseek", (int fd, off_t offset, int from) noexcept, (fd, offset, from))
BY_DESCRIPTOR(off64_t, lseek64, "lseek", (int fd, off64_t offset, int from) noexcept,
              (fd, offset, from))
BY_DESCRIPTOR(ssize_t, writev, "write", (int fd, const iovec* parts, int count), (fd, parts, count))

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = faults::ModeArgument(flags, arguments);
    va_end(arguments);
    return faults::Open(path, flags, mode);
}

int open64(const char* path, int flags, ...) __attribute__((alias("open")));

ssize_t read(int fd, void* buffer, size_t size) {
    static auto* const next = Next<ssize_t(int, void*, size_t)>("read");
    return Make<ssize_t>("read", faults::PathOf(fd), -1, [&](bool cut) {
        return next(fd, buffer, cut ? std::min<size_t>(size, 1) : size);
    });
}

// The function that a fortified call of read() is compiled to.
ssize_t __read_chk(int fd, void* buffer, size_t size, size_t room) {
    if (size > room) abort();
    return read(fd, buffer, size);
}

ssize_t write(int fd, const void* buffer, size_t size) {
    static auto* const next = Next<ssize_t(int, const void*, size_t)>("write");
    return Make<ssize_t>("write", faults::PathOf(fd), -1, [&](bool cut) {
        return next(fd, buffer, cut ? std::min<size_t>(size, 1) : size);
    });
}

int close(int fd) {
    static auto* const next = Next<int(int)>("close");
    const std::string path = faults::PathOf(fd);
    faults::Closed(fd);
    return Make(
            "close", path, -1, [&](bool) { return next(fd); }, false, true);
}

// The names with which the standard library's file streams open and close files. A regular file
// replaces the splash partition and, like that, must not be truncated.
FILE* fopen64(const char* path, const char* mode) {
    static auto* const next = Next<FILE*(const char*, const char*)>("fopen64");
    const bool writes = mode[0] == 'w';
    const bool is_device = writes && strncmp(path, "/dev/", 5) == 0;
    FILE* file = Make<FILE*>(
            "fopen", path, nullptr, [&](bool) { return next(path, is_device ? "r+b" : mode); },
            writes);
    faults::Opened(file == nullptr ? -1 : fileno(file), path);
    return file;
}

int fclose(FILE* file) {
    static auto* const next = Next<int(FILE*)>("fclose");
    const std::string path = faults::PathOf(fileno(file));
    faults::Closed(fileno(file));
    return Make(
            "close", path, -1, [&](bool) { return next(file); }, false, true);
}

DIR* opendir(const char* path) {
    static auto* const next = Next<DIR*(const char*)>("opendir");
    DIR* dir = Make<DIR*>("opendir", path, nullptr, [&](bool) { return next(path); });
    faults::Opened(dir == nullptr ? -1 : dirfd(dir), path);
    return dir;
}

dirent* readdir(DIR* dir) {
    static auto* const next = Next<dirent*(DIR*)>("readdir");
    return Make<dirent*>("getdents", faults::PathOf(dirfd(dir)), nullptr,
                         [&](bool) { return next(dir); });
}

int closedir(DIR* dir) {
    static auto* const next = Next<int(DIR*)>("closedir");
    const std::string path = faults::PathOf(dirfd(dir));
    faults::Closed(dirfd(dir));
    return Make(
            "close", path, -1, [&](bool) { return next(dir); }, false, true);
}

int mount(const char* source, const char* path, const char* type, unsigned long flags,
          const void* data) noexcept {
    static auto* const next =
            Next<int(const char*, const char*, const char*, unsigned long, const void*)>("mount");
    return Make("mount", path, -1, [&](bool) { return next(source, path, type, flags, data); });
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                   void* argument) {
    static auto* const next =
            Next<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
    const bool made = Make("clone", "thread", -1, [&](bool) {
                          ++faults::g_threads;
                          return next(thread, attributes, faults::RunThread,
                                      new faults::Thread{routine, argument});
                      }) == 0;
    return made ? 0 : errno;
}

}  // extern "C"
