// Finds the directory to which the paths of files in reports are relative.

#pragma once

#include <string>

namespace extprop {

class SourceRoot {
  public:
    // Uses the root of the work tree that holds `device`, or `device` itself if none does. Throws
    // InputError if it cannot be used.
    explicit SourceRoot(const std::string& device);

    // Uses the directory `root`. Throws InputError if `device` does not lie in it.
    SourceRoot(const std::string& device, const std::string& root);

    // Returns the root's absolute path, without links.
    const std::string& directory() const { return directory_; }

    // Returns whether the root is the device itself.
    bool is_device() const { return is_device_; }

    // Returns the path from the root to the device's `path`, which is empty for the device itself.
    std::string PathTo(const std::string& path) const;

  private:
    void SetDevice(const std::string& device);

    std::string directory_;
    std::string device_;  // relative, with a slash at its end unless it is the root
    bool is_device_ = false;
};

// Returns the path of a file relative to the work tree that holds it, or unchanged if none does.
std::string PathInWorkTree(const std::string& file);

// Returns the path for a URI, with other bytes than plain characters escaped, such as "%C3".
std::string UriOf(const std::string& path);

}  // namespace extprop
