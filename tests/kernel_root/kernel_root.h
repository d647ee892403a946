// A private root of the kernel's own, to compare with and for what needs no sandbox: a copy of a
// directory is "/" in namespaces of its own. It takes root, or user namespaces.

#pragma once

#include <chrono>
#include <functional>
#include <string>

#include <android-base/unique_fd.h>

#include "process.h"

class KernelRoot {
  public:
    // Throws std::runtime_error, saying why, if there can be no such root.
    explicit KernelRoot(const std::string& directory);

    // Runs `function` as sandbox::Sandbox does. Mounts made there end with the process; written
    // files stay.
    sandbox::Ending Run(const std::function<int()>& function,
                        std::chrono::milliseconds limit = std::chrono::seconds(60)) const;

    // Returns a path at which the caller, outside, reaches what is at `path`.
    std::string Outside(const std::string& path) const;

  private:
    bool Enter() const;

    android::base::unique_fd user_namespace_;  // none when run as root
    android::base::unique_fd mount_namespace_;
    android::base::unique_fd root_;
};
