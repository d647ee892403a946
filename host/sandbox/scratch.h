// A directory for the time of a process.

#pragma once

#include <sys/types.h>

#include <string>

#include <android-base/unique_fd.h>

namespace sandbox {

// Makes a directory that this user alone can enter, and removes it with all that is in it, however
// the process that made it ends.
class ScratchDirectory {
  public:
    // It lies in memory where there is much room. Throws std::runtime_error if there is no place
    // for it.
    ScratchDirectory();
    ~ScratchDirectory();
    ScratchDirectory& operator=(ScratchDirectory&&) = delete;

    const std::string& path() const { return path_; }

    // A child process that outlives its parent for a moment must not keep the directory.
    void LeaveInChild() { keeper_.reset(); }

  private:
    std::string path_;
    android::base::unique_fd keeper_;  // a process of its own waits for this to be closed
    pid_t keeper_process_;
};

}  // namespace sandbox
