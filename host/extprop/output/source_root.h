// Where services look for the files that reports name.

#pragma once

#include <string>

namespace extprop {

class SourceRoot {
  public:
    // The root of the work tree that `device` lies in; otherwise `device` itself. Throws
    // InputError if it cannot be used.
    explicit SourceRoot(const std::string& device);

    // The directory `root`, which `device` lies in. Throws InputError if it does not.
    SourceRoot(const std::string& device, const std::string& root);

    // The absolute path, without links.
    const std::string& directory() const { return directory_; }

    // Whether reports name files from the device's root, since there is nothing above it.
    bool is_device() const { return is_device_; }

    // Returns the path from the root to the device's `path`, which is empty for the device itself.
    std::string PathTo(const std::string& path) const;

  private:
    void Place(const std::string& device);

    std::string directory_;
    std::string device_;  // from there, with a slash at its end unless it is the root
    bool is_device_ = false;
};

// Returns the path of a file from the root of the work tree that it lies in, or as it is.
std::string PathInWorkTree(const std::string& file);

// Returns the path as a part of a URI: any byte that is no plain letter stands as "%C3".
std::string UriOf(const std::string& path);

}  // namespace extprop
