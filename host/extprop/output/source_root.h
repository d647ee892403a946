// Finds the directory to which the paths of files in reports are relative. A work tree is a
// directory with a ".git" in it.

#pragma once

#include <string>

namespace extprop {

class SourceRoot {
  public:
    // Uses the root of the innermost work tree that holds `device`, which may be a file, or
    // `device` itself if none does. Throws InputError if there is no such device.
    explicit SourceRoot(const std::string& device);

    // Uses `root`; that it is a directory is not checked. Throws InputError if either does not
    // exist or `device` neither is `root` nor lies in it; links in both are followed first.
    SourceRoot(const std::string& device, const std::string& root);

    // Returns the root's absolute path, without links.
    const std::string& directory() const { return directory_; }

    // Returns whether the root is the device itself because no work tree holds it.
    bool is_device() const { return is_device_; }

    // Returns the path from the root to the device's `path`, which is absolute on the device or,
    // for the device itself, empty. Returns "." where both are the same. Looks at no file.
    std::string PathTo(const std::string& path) const;

  private:
    void SetDevice(const std::string& device);

    std::string directory_;
    std::string device_;  // relative, with a slash at its end unless it is the root
    bool is_device_ = false;
};

// Returns the path of a file relative to the work tree that holds it. If none does, or the file
// does not exist, returns the path as it is, but without "." and, except at its beginning, "..".
std::string PathInWorkTree(const std::string& file);

// Returns the path for a URI. All bytes but ASCII letters, digits and "/-._~" are escaped, such as
// "%C3".
std::string UriOf(const std::string& path);

}  // namespace extprop
