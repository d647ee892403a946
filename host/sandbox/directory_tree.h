// A directory of this machine as a tree. Each path is walked from the directory's descriptor, name
// by name, without following links. So no path leads out of it, even if another process changes the
// directory at the same time.

#pragma once

#include <mutex>
#include <unordered_map>

#include <android-base/unique_fd.h>

#include "tree.h"

namespace sandbox {

class DirectoryTree : public Tree {
  public:
    // Throws std::runtime_error if the directory cannot be opened.
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

// Do the same for a name in an open directory of this machine. Return a result, or a negative
// errno.
long StatusIn(int directory, const char* name, struct stat* status);
long TargetIn(int directory, const char* name, std::string* target);
long NamesIn(int directory, const char* name, std::vector<Listed>* names);

}  // namespace sandbox
