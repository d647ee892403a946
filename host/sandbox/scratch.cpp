#include "scratch.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "checks.h"

using android::base::unique_fd;

namespace sandbox {

namespace {

namespace fs = std::filesystem;

void CloseAllBut(int kept) {
    syscall(SYS_close_range, 0, kept - 1, 0);
    syscall(SYS_close_range, kept + 1, ~0u, 0);
}

// Makes the directory and sends its path over the channel, waits until the other end is closed or
// sends anything, and removes the directory. If it cannot be made, ends with the errno as exit
// status.
[[noreturn]] void Keep(std::string path, int channel) {
    // A signal to all of a terminal's or job's processes must not end this one before it has
    // removed the directory. So it leaves the session before it makes the directory.
    setsid();
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    prctl(PR_SET_NAME, "extprop-scratch");
    if (channel == 0) channel = dup(channel);
    CloseAllBut(channel);
    if (mkdtemp(path.data()) == nullptr) _exit(errno);
    char byte;
    if (send(channel, path.data(), path.size(), 0) > 0) {
        TEMP_FAILURE_RETRY(recv(channel, &byte, 1, 0));
    }
    // A process that is being killed may still be writing there.
    constexpr int kAttempts = 100;
    std::error_code error;
    for (int i = 0; i < kAttempts; ++i) {
        fs::remove_all(path, error);
        if (!error) _exit(EXIT_SUCCESS);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    _exit(EXIT_FAILURE);
}

// Returns where to make it: in memory if there is room for all that a boot may write, else in the
// user's or the system's directory for temporary files.
std::string Parent() {
    constexpr char kMemory[] = "/dev/shm";
    constexpr uintmax_t kMuchRoom = 1ull << 30;
    std::error_code error;
    if (getenv("TMPDIR") == nullptr && access(kMemory, W_OK | X_OK) == 0) {
        if (fs::space(kMemory, error).available >= kMuchRoom && !error) return kMemory;
    }
    const std::string chosen = fs::temp_directory_path(error);
    return error ? "/tmp" : chosen;
}

}  // namespace

ScratchDirectory::ScratchDirectory() {
    const std::string path = Parent() + "/extprop-XXXXXX";
    unique_fd theirs;
    Check(android::base::Socketpair(SOCK_SEQPACKET | SOCK_CLOEXEC, &keeper_, &theirs),
          "socketpair");
    keeper_process_ = fork();
    if (keeper_process_ == 0) {
        keeper_.reset();
        Keep(path, theirs.get());
    }
    Check(keeper_process_ != -1, "fork");
    theirs.reset();
    char made[PATH_MAX];
    const ssize_t size = TEMP_FAILURE_RETRY(recv(keeper_.get(), made, sizeof(made), 0));
    if (size <= 0) {
        int status = 0;
        TEMP_FAILURE_RETRY(waitpid(keeper_process_, &status, 0));
        errno = WIFEXITED(status) ? WEXITSTATUS(status) : EINTR;
        Fail("cannot make a temporary directory, " + path);
    }
    path_.assign(made, size);
}

ScratchDirectory::~ScratchDirectory() {
    // Another child may have a copy of this end, so closing it is not enough.
    TEMP_FAILURE_RETRY(send(keeper_.get(), "", 1, MSG_NOSIGNAL));
    TEMP_FAILURE_RETRY(waitpid(keeper_process_, nullptr, 0));
}

}  // namespace sandbox
