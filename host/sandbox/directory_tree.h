// A directory of this machine as a tree. Each path is walked from the directory's descriptor, name
// by name, without following links. So no path leads out of it, even if another process changes the
// directory at the same time. That paths are as tree.h says, and without "..", is not checked.
// One thread at a time may use it.

#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include <android-base/unique_fd.h>

#include "tree.h"

namespace sandbox {

class DirectoryTree : public Tree {
  public:
    // Opens the directory of this machine at `path`, which may be a link. Throws
    // std::runtime_error, with the path, if that fails or it is no directory.
    explicit DirectoryTree(const std::string& path);

    long Status(const std::string& path, struct stat* status) const override;
    long Target(const std::string& path, std::string* target) const override;
    long List(const std::string& directory, std::vector<Listed>* names) const override;
    long Open(const std::string& path, int flags) const override;

  private:
    // The arguments with which a system call such as openat(2) reaches a path.
    struct AtPath {
        int directory;
        const char* name;  // of the path's own text
    };

    long Find(const std::string& path, AtPath* at) const;
    long Directory(const std::string& path) const;

    android::base::unique_fd root_;
    // Cache: directories through which paths led before.
    mutable std::unordered_map<std::string, android::base::unique_fd> open_;
};

// Do what Tree's functions do for a path in an open directory of this machine; it must not lead
// through a link. "" is the directory itself for StatusIn(), "." for NamesIn(), which may add some
// names before it fails. Return 0, TargetIn() the target's length, or a negative errno.
long StatusIn(int directory, const char* name, struct stat* status);
long TargetIn(int directory, const char* name, std::string* target);
long NamesIn(int directory, const char* name, std::vector<Listed>* names);

}  // namespace sandbox
