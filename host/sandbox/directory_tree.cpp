#include "directory_tree.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "../kernel.h"
#include "checks.h"

using android::base::unique_fd;

namespace sandbox {

namespace {

constexpr int kDirectory = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr size_t kMostOpen = 64;

}  // namespace

long StatusIn(int directory, const char* name, struct stat* status) {
    return Kernel(SYS_newfstatat, directory, name, status, AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH);
}

long TargetIn(int directory, const char* name, std::string* target) {
    char buffer[PATH_MAX];
    const long size = Kernel(SYS_readlinkat, directory, name, buffer, sizeof(buffer));
    if (size >= 0) target->assign(buffer, size);
    return size;
}

long NamesIn(int directory, const char* name, std::vector<Listed>* names) {
    const long fd =
            Kernel(SYS_openat, directory, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC, 0);
    if (fd < 0) return fd;
    const unique_fd opened(static_cast<int>(fd));
    alignas(dirent64) char buffer[32 * 1024];
    long size;
    while ((size = Kernel(SYS_getdents64, fd, buffer, sizeof(buffer))) > 0) {
        for (long at = 0; at < size;) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer + at);
            at += entry->d_reclen;
            const std::string_view listed = entry->d_name;
            if (listed == "." || listed == "..") continue;
            names->push_back({std::string(listed), entry->d_type});
        }
    }
    return size;
}

DirectoryTree::DirectoryTree(const std::string& path)
        : root_(OpenOrThrow(path, O_PATH | O_DIRECTORY)) {}

// Returns a descriptor of the directory, valid until the next call.
long DirectoryTree::Directory(const std::string& path) const {
    if (path.empty()) return root_.get();
    // Starts at the nearest directory that is open already.
    size_t known = path.size();
    auto nearest = open_.find(path);
    while (nearest == open_.end() && (known = path.rfind('/', known - 1)) != 0) {
        nearest = open_.find(path.substr(0, known));
    }
    if (known == path.size()) return nearest->second.get();
    int from = nearest == open_.end() ? root_.get() : nearest->second.get();
    unique_fd directory;
    for (size_t begin = known + 1; begin <= path.size();) {
        const size_t end = std::min(path.find('/', begin), path.size());
        const std::string name = path.substr(begin, end - begin);
        const long fd = Kernel(SYS_openat, from, name.c_str(), kDirectory, 0);
        if (fd < 0) return fd;
        directory.reset(from = static_cast<int>(fd));
        begin = end + 1;
    }
    if (open_.size() >= kMostOpen) open_.clear();
    open_.emplace(path, std::move(directory));
    return from;
}

long DirectoryTree::Find(const std::string& path, AtPath* at) const {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        *at = {root_.get(), ""};
        return 0;
    }
    const long directory = Directory(path.substr(0, slash));
    if (directory < 0) return directory;
    *at = {static_cast<int>(directory), path.c_str() + slash + 1};
    return 0;
}

long DirectoryTree::Status(const std::string& path, struct stat* status) const {
    AtPath at;
    if (long error = Find(path, &at); error < 0) return error;
    return StatusIn(at.directory, at.name, status);
}

long DirectoryTree::Target(const std::string& path, std::string* target) const {
    AtPath at;
    if (long error = Find(path, &at); error < 0) return error;
    return TargetIn(at.directory, at.name, target);
}

long DirectoryTree::List(const std::string& directory, std::vector<Listed>* names) const {
    AtPath at;
    if (long error = Find(directory, &at); error < 0) return error;
    return NamesIn(at.directory, directory.empty() ? "." : at.name, names);
}

long DirectoryTree::Open(const std::string& path, int flags) const {
    AtPath at;
    if (long error = Find(path, &at); error < 0) return error;
    // O_NONBLOCK: it may have become a FIFO since it was looked at.
    const long fd = Kernel(SYS_openat, at.directory, path.empty() ? "." : at.name,
                           flags | O_NOFOLLOW | O_NONBLOCK, 0);
    if (fd < 0) return fd;
    struct stat status;
    long error = StatusIn(static_cast<int>(fd), "", &status);
    if (error == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
        error = S_ISLNK(status.st_mode) ? -ELOOP : -ENXIO;  // a link only with O_PATH
    }
    if (error == 0) return fd;
    Kernel(SYS_close, fd);
    return error;
}

}  // namespace sandbox
