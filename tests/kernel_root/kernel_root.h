// A private root made with the kernel's namespaces, to compare the sandbox with and for tests that
// need no sandbox: "/" is a copy of a directory, in memory. It needs root privileges or user
// namespaces.

#pragma once

#include <chrono>
#include <functional>
#include <string>

#include <android-base/unique_fd.h>

#include "process.h"

class KernelRoot {
  public:
    // Copies the directory, with modes and, for root, owners. Throws std::runtime_error with the
    // reason if there can be no such root.
    explicit KernelRoot(const std::string& directory);

    // Runs `function` in a process in this root, as sandbox::StartProcess does, and kills it at the
    // limit. Mounts that it makes end with the process; files that it writes stay. If the root
    // cannot be entered, the status is EXIT_FAILURE.
    sandbox::Ending Run(const std::function<int()>& function,
                        std::chrono::milliseconds limit = std::chrono::seconds(60)) const;

    // Returns the path by which this process, outside, reaches the root's absolute `path` as long
    // as this exists.
    std::string Outside(const std::string& path) const;

  private:
    bool Enter() const;

    android::base::unique_fd user_namespace_;  // none when run as root
    android::base::unique_fd mount_namespace_;
    android::base::unique_fd root_;
};
