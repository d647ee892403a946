// Processes that end with the one that started them.

#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <chrono>
#include <functional>

#include <android-base/unique_fd.h>

namespace sandbox {

// How a process ended.
struct Ending {
    bool timed_out = false;  // it was killed at the time limit
    int signal = 0;          // the signal that ended it, or 0; SIGKILL if it timed out
    int exit_status = -1;    // the lowest 8 bits of its function's result, if no signal ended it

    bool ok() const { return !timed_out && signal == 0 && exit_status == 0; }
};

// A running child process. Destroying the object kills it, unless Wait() was called.
class Process {
  public:
    // Takes over the child `pid`. Throws std::runtime_error if it cannot be waited for with a time
    // limit; it is killed then.
    explicit Process(pid_t pid);
    ~Process();
    Process(Process&& other) noexcept;
    Process& operator=(Process&&) = delete;

    // Waits for the end of the process and kills it when `limit`, at most INT_MAX milliseconds, has
    // passed; waits for ever if that is negative. Call it once. Throws std::runtime_error if how it
    // ended is unknown, as it always is where SIGCHLD is ignored.
    Ending Wait(std::chrono::milliseconds limit);

    // Waits until the process has one thread, or has ended. Returns false if it still has more at
    // the deadline and, without a look, if that has passed already.
    bool WaitForThreads(std::chrono::steady_clock::time_point deadline) const;

  private:
    pid_t pid_;
    android::base::unique_fd pidfd_;
};

// Makes the calling process end with its parent, at once if that has ended already. A change of the
// user or the user namespace undoes it.
void EndWith(pid_t parent);

// Lowers one of the calling process's soft limits, as setrlimit(2) names them, to `most`; a lower
// one stays. A failure is ignored.
void SetLimit(int resource, uint64_t most);

// Limits the calling process's data to what it has now and `bytes` more, as SetLimit() does. Does
// nothing in a sanitizer's build.
void LimitMemory(uint64_t bytes);

// Returns the limit of the calling process's data, in bytes; RLIM_INFINITY if there is none.
uint64_t MemoryLimit();

// Starts a process that calls `enter`, which prepares its root, and then `function`, whose result
// is the exit status. If `enter` returns false, the process prints errno's text to standard error
// and ends with status 1. In it crashes are signals that leave no core file, an exception of
// either function is a crash, the stack has at most 8 MiB, the umask is 0 as init's, standard input
// is empty; the end of the calling process ends it too. Throws std::runtime_error if no process can
// be started.
Process StartProcess(const std::function<bool()>& enter, const std::function<int()>& function);

}  // namespace sandbox
