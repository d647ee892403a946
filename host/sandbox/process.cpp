#include "process.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <thread>
#include <utility>

#include <android-base/file.h>

#include "../sanitized.h"
#include "checks.h"

using android::base::unique_fd;

namespace sandbox {

namespace {

constexpr rlim_t kStackLimit = 8 * 1024 * 1024;

// Makes a crash look the same whatever the caller or a sanitizer has set up: it is a signal, leaves
// no core file, and endless recursion reaches its limit.
void PrepareForCrashes() {
    for (int signal_number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGPIPE}) {
        signal(signal_number, SIG_DFL);
    }
    SetLimit(RLIMIT_CORE, 0);
    SetLimit(RLIMIT_STACK, kStackLimit);
}

Ending EndingOf(int status) {
    Ending ending;
    if (WIFSIGNALED(status)) ending.signal = WTERMSIG(status);
    if (WIFEXITED(status)) ending.exit_status = WEXITSTATUS(status);
    return ending;
}

void KillAndReap(pid_t pid) {
    kill(pid, SIGKILL);
    TEMP_FAILURE_RETRY(waitpid(pid, nullptr, 0));
}

}  // namespace

Process::Process(pid_t pid) : pid_(pid), pidfd_(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))) {
    if (pidfd_.ok()) return;
    const int error = errno;
    KillAndReap(pid_);
    errno = error;
    Fail("pidfd_open");
}

Process::Process(Process&& other) noexcept : pid_(other.pid_), pidfd_(std::move(other.pidfd_)) {
    other.pid_ = -1;
}

Process::~Process() {
    if (pid_ != -1) KillAndReap(pid_);
}

Ending Process::Wait(std::chrono::milliseconds limit) {
    pollfd ended{pidfd_.get(), POLLIN, 0};
    const bool in_time = TEMP_FAILURE_RETRY(poll(&ended, 1, static_cast<int>(limit.count()))) == 1;
    if (!in_time) kill(pid_, SIGKILL);
    const pid_t pid = std::exchange(pid_, -1);
    int status;
    Check(TEMP_FAILURE_RETRY(waitpid(pid, &status, 0)) == pid, "waitpid");
    Ending ending = EndingOf(status);
    ending.timed_out = !in_time;
    return ending;
}

bool Process::WaitForThreads(std::chrono::steady_clock::time_point deadline) const {
    const std::string tasks = "/proc/" + std::to_string(pid_) + "/task";
    while (std::chrono::steady_clock::now() < deadline) {
        std::error_code gone;
        const auto threads = std::filesystem::directory_iterator(tasks, gone);
        if (gone || std::distance(begin(threads), end(threads)) <= 1) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

void SetLimit(int resource, uint64_t most) {
    rlimit limit;
    if (getrlimit(resource, &limit) != 0) return;
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, most);
    setrlimit(resource, &limit);
}

void LimitMemory(uint64_t bytes) {
    if (kIsSanitized) return;
    unsigned long pages = 0;  // of data
    std::string statm;
    android::base::ReadFileToString("/proc/self/statm", &statm);
    sscanf(statm.c_str(), "%*u %*u %*u %*u %*u %lu", &pages);
    SetLimit(RLIMIT_DATA, pages * sysconf(_SC_PAGESIZE) + bytes);
}

uint64_t MemoryLimit() {
    rlimit limit = {};
    return getrlimit(RLIMIT_DATA, &limit) == 0 ? limit.rlim_cur : RLIM_INFINITY;
}

void EndWith(pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(EXIT_FAILURE);
}

Process StartProcess(const std::function<bool()>& enter, const std::function<int()>& function) {
    const pid_t parent = getpid();
    const pid_t pid = fork();
    Check(pid != -1, "fork");
    if (pid != 0) return Process(pid);

    unique_fd no_input(open("/dev/null", O_RDONLY | O_CLOEXEC));
    dup2(no_input.get(), STDIN_FILENO);
    no_input.reset();
    EndWith(parent);
    PrepareForCrashes();
    umask(0);
    const auto play = [&]() noexcept {
        if (enter()) return function();
        perror("extprop: cannot enter the device's root");
        return EXIT_FAILURE;
    };
    _exit(play());
}

}  // namespace sandbox
