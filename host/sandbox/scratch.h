// A temporary directory that lasts as long as the process.

#pragma once

#include <sys/types.h>

#include <string>

#include <android-base/unique_fd.h>

namespace sandbox {

// Makes a directory that only this user can enter. A process of its own removes it, with all that
// is in it, when this object is destroyed or the process that made it ends, however it ends.
class ScratchDirectory {
  public:
    // Makes it in memory (/dev/shm) if TMPDIR is unset and 1 GiB is free there, else in the
    // directory for temporary files, which is /tmp if TMPDIR names no directory. Throws
    // std::runtime_error if it cannot be made.
    ScratchDirectory();

    // Waits until the directory is removed; gives up if that fails for a second.
    ~ScratchDirectory();
    ScratchDirectory& operator=(ScratchDirectory&&) = delete;

    const std::string& path() const { return path_; }

    // Call it in a child process: otherwise the directory would stay until the child ends, too, and
    // the child would remove it with its copy of this object.
    void LeaveInChild() { keeper_.reset(); }

  private:
    std::string path_;
    android::base::unique_fd keeper_;  // when it is closed, a process removes the directory
    pid_t keeper_process_;
};

}  // namespace sandbox
