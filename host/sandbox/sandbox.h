// A private root for code that uses absolute paths: a device directory is seen at "/", mounts and
// writes are real, and all of it is gone at the end, the device directory as it was.

#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>

#include "snapshot.h"

namespace sandbox {

// How a process ended.
struct Ending {
    bool timed_out = false;  // it was killed at the time limit
    int signal = 0;          // the signal that ended it, or 0
    int exit_status = -1;    // what its function returned, if no signal ended it

    bool ok() const { return !timed_out && signal == 0 && exit_status == 0; }
};

// A running process of a sandbox. Destroying the object kills it.
class Process {
  public:
    explicit Process(pid_t pid);
    ~Process();
    Process(Process&& other) noexcept;
    Process& operator=(Process&&) = delete;

    // Waits for the end, killing the process when `limit` has passed. Call it once.
    Ending Wait(std::chrono::milliseconds limit);

    // Waits until the process has one thread, or none. Returns false if it still has more at the
    // deadline.
    bool WaitForThreads(std::chrono::steady_clock::time_point deadline) const;

  private:
    pid_t pid_;
    android::base::unique_fd pidfd_;
};

// Where writes go: a layer over the device directory, or a copy of it where the kernel has none.
enum class Layer { kOverlayOrCopy, kCopy };

class Sandbox {
  public:
    // Prepares a root over the directory `device`, in private mount namespaces and, unless run as
    // root, a user namespace. A partition image in `device` is seen as the files in it. Throws
    // std::runtime_error, saying why, if the root cannot be had.
    explicit Sandbox(const std::string& device, Layer layer = Layer::kOverlayOrCopy);

    // Starts a process in which the device is "/" and calls `function`, whose result is the
    // process's exit status. Mounts made there end with the process; written files stay. Signals
    // have their default action, the umask is 0 as init's, standard input is empty.
    Process Start(const std::function<int()>& function) const;

    // Starts a process as above and waits for its end.
    Ending Run(const std::function<int()>& function,
               std::chrono::milliseconds limit = std::chrono::seconds(60)) const;

    // Makes the regular file at the device's `path` the content of a block device that stands in
    // its place: what opens it for output does not truncate it. Throws std::runtime_error, saying
    // why, if this cannot be had; it takes root. What is left over of 512 bytes is out of reach.
    void AttachBlockDevice(const std::string& path);

    // Returns a path at which the caller, outside, reaches the device's `path`, such as "/odm".
    std::string Outside(const std::string& path) const;

    // Returns the state of all files of the device but those of partition images, which stay.
    Snapshot TakeSnapshot() const;

    // Whether writes go to an overlay rather than to a copy.
    bool has_overlay() const;

  private:
    bool Enter() const;  // takes the calling process, a child, to the sandbox's namespaces

    android::base::unique_fd user_namespace_;  // none when run as root
    android::base::unique_fd mount_namespace_;
    android::base::unique_fd root_;
    std::vector<android::base::unique_fd> block_devices_;  // each lives as long as it is open
};

}  // namespace sandbox
