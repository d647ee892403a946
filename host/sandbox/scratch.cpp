#include "scratch.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/close_range.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
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

// Waits until the other end of the pipe is closed or says so, and removes the directory.
[[noreturn]] void Remove(const std::string& path, int pipe) {
    // What ends a terminal's or a job's processes has to leave this one to do its work.
    setsid();
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    prctl(PR_SET_NAME, "extprop-scratch");
    if (pipe == 0) pipe = dup(pipe);
    CloseAllBut(pipe);
    char byte;
    TEMP_FAILURE_RETRY(read(pipe, &byte, 1));
    // A process that is only just being killed may still be writing there.
    constexpr int kAttempts = 100;
    std::error_code error;
    for (int i = 0; i < kAttempts; ++i) {
        fs::remove_all(path, error);
        if (!error) _exit(EXIT_SUCCESS);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    _exit(EXIT_FAILURE);
}

}  // namespace

ScratchDirectory::ScratchDirectory() {
    std::error_code error;
    path_ = fs::temp_directory_path(error).string() + "/extprop-XXXXXX";
    if (error) path_ = "/tmp/extprop-XXXXXX";
    unique_fd end;
    Check(android::base::Pipe(&end, &keeper_), "pipe");
    Check(mkdtemp(path_.data()) != nullptr, "cannot make a temporary directory, " + path_);
    remover_ = fork();
    if (remover_ == 0) Remove(path_, end.get());
    if (remover_ == -1) {
        rmdir(path_.c_str());
        Fail("fork");
    }
}

ScratchDirectory::~ScratchDirectory() {
    // Another child may have a copy of this end, so that closing it is not enough.
    TEMP_FAILURE_RETRY(write(keeper_.get(), "", 1));
    TEMP_FAILURE_RETRY(waitpid(remover_, nullptr, 0));
}

}  // namespace sandbox
