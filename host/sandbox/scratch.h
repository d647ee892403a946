// A temporary directory that lasts as long as the process.

#pragma once

#include <sys/types.h>

#include <string>

#include <android-base/unique_fd.h>

namespace sandbox {

// Makes a directory that only this user can enter. It is removed with all that is in it when the
// process that made it ends, in whatever way.
class ScratchDirectory {
  public:
    // Makes it in memory (/dev/shm) if there is enough room, else in the directory for temporary
    // files. Throws std::runtime_error if it cannot be made.
    ScratchDirectory();
    ~ScratchDirectory();
    ScratchDirectory& operator=(ScratchDirectory&&) = delete;

    const std::string& path() const { return path_; }

    // Call it in a child process: otherwise the directory would stay until the child ends, too.
    void LeaveInChild() { keeper_.reset(); }

  private:
    std::string path_;
    android::base::unique_fd keeper_;  // when it is closed, a process removes the directory
    pid_t keeper_process_;
};

}  // namespace sandbox
