// A private root for code that uses absolute paths: a device directory is seen at "/", mounts and
// writes are real, and all of it is gone at the end, the device directory as it was.

#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>

#include "changes.h"

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

// How a process comes to have the device at "/".
enum class Way {
    kAny,       // what the environment variable EXTPROP_SANDBOX says, or kRedirect where it can be
    kRedirect,  // its system calls are led; needs no privileges
    kOverlay,   // a private root of the kernel's, with an overlay over the device directory
    kCopy,      // a private root of the kernel's, with a copy of the device directory
};

struct Options {
    Way way = Way::kAny;
    char slot = 'a';  // of a partition that has images for two slots
};

// A file of a partition image.
struct ImagePlace {
    std::string image;  // the image's path; of a logical partition "super.img(NAME)" at its end
    std::string path;   // in the image, such as "/build.prop"
};

// Such as "/build.prop in my_region.img".
std::string Name(const ImagePlace& place);

class DeviceFiles;
class Root;

class Sandbox {
  public:
    // Prepares a root over the directory `device`, in which a partition image is seen as the files
    // in it. Throws std::runtime_error, saying why, if the root cannot be had.
    explicit Sandbox(const std::string& device, Options options = {});

    // The same over a device whose images are unpacked already, its calls led.
    explicit Sandbox(std::shared_ptr<DeviceFiles> files);
    ~Sandbox();

    // Throws all changes away, so that the sandbox is as a new one; none of its processes may run.
    // A process that has the object from its parent gets changes of its own so. Throws as above.
    void Reset();

    // Starts a process in which the device is "/" and calls `function`, whose result is the
    // process's exit status. Mounts made there end with the process; written files stay. Signals
    // have their default action, the umask is 0 as init's, standard input is empty.
    Process Start(const std::function<int()>& function) const;

    // Starts a process as above and waits for its end.
    Ending Run(const std::function<int()>& function,
               std::chrono::milliseconds limit = std::chrono::seconds(60)) const;

    // Makes the regular file at the device's `path` a block device: what opens it for output does
    // not truncate it. Throws std::runtime_error, saying why, if this cannot be had; in a private
    // root of the kernel's it takes root. What is left over of 512 bytes is out of reach.
    void AttachBlockDevice(const std::string& path);

    // Returns a path at which the caller, outside, can read the device's `path`, such as "/odm".
    std::string Outside(const std::string& path) const;

    // Returns what was created, changed and deleted since the last time, in the order of the paths.
    // A file that was written counts as changed, whatever was written; a directory by its mode and
    // owner only.
    std::vector<FileChange> TakeChanges();

    // The name of the way that was taken, such as "redirect".
    const char* way() const;

    // Returns the image that the device's `path` lies in, if it is in one.
    std::optional<ImagePlace> ImageOf(const std::string& path) const;

    // Returns what the user should know about what lies in the device directory, and about what was
    // looked for so far.
    std::vector<std::string> Notes() const;

  private:
    std::string device_;
    Options options_;
    Way way_;
    std::unique_ptr<Root> root_;
};

}  // namespace sandbox
