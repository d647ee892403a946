#include "named_file.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <string_view>

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "file_names.h"
#include "input_error.h"

namespace extprop {

namespace {

using android::base::StartsWith;
using android::base::unique_fd;

[[noreturn]] void Fail(const std::string& path, const std::string& why) {
    if (path.empty()) throw InputError("the name of a file is empty");
    throw InputError(path + ": " + why);
}

[[noreturn]] void FailWithErrno(const std::string& path) {
    Fail(path, strerror(errno));
}

[[noreturn]] void FailAtLink(const std::string& path, const std::string& link) {
    Fail(path, (link == path ? "this" : link) +
                       " is a link, which is not followed; give the file that it leads to");
}

bool IsLink(int directory, const std::string& name) {
    struct stat status;
    return fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISLNK(status.st_mode);
}

// Returns the absolute paths of the directories among the inputs, each with a slash at its end.
std::vector<std::string> DirectoriesIn(const std::vector<std::string>& inputs) {
    std::vector<std::string> directories;
    for (const std::string& input : inputs) {
        std::string path;
        struct stat status;
        if (stat(input.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) continue;
        if (!android::base::Realpath(input, &path)) FailWithErrno(input);
        directories.push_back(path == "/" ? path : path + "/");
    }
    return directories;
}

// Returns whether the directory is one of these or lies in one.
bool IsIn(int directory, const std::vector<std::string>& directories) {
    if (directories.empty()) return false;
    char path[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(directory);
    const ssize_t size = readlink(link.c_str(), path, sizeof(path));
    if (size <= 0) return true;  // unknown, so assume the worst
    const std::string in = std::string(path, size) + "/";
    return std::any_of(directories.begin(), directories.end(),
                       [&in](const std::string& known) { return StartsWith(in, known); });
}

// Where a named file lies: the open directory and the name in it, so that no link can come in
// between.
struct Location {
    unique_fd directory;
    std::string name;
    bool in_device = false;  // or in another directory of the inputs
};

// Finds the file's directory. In directories of the inputs no link is followed.
Location Locate(const std::string& path, const std::vector<std::string>& inputs) {
    const std::vector<std::string> roots = DirectoriesIn(inputs);
    Location location;
    std::string walked = path[0] == '/' ? "/" : "";
    location.directory.reset(open(path[0] == '/' ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!location.directory.ok()) FailWithErrno(path);
    location.in_device = IsIn(location.directory.get(), roots);
    const size_t slash = path.rfind('/');
    location.name = path.substr(slash == std::string::npos ? 0 : slash + 1);
    const std::string parent = slash == std::string::npos ? "" : path.substr(0, slash);
    for (const std::string& part : android::base::Split(parent, "/")) {
        if (part.empty()) continue;
        walked += part;
        const int follow = location.in_device ? O_NOFOLLOW : 0;
        const int next = openat(location.directory.get(), part.c_str(),
                                O_PATH | O_DIRECTORY | O_CLOEXEC | follow);
        if (next == -1) {
            const int error = errno;
            if (location.in_device && IsLink(location.directory.get(), part)) {
                FailAtLink(path, walked);
            }
            errno = error;
            FailWithErrno(path);
        }
        location.directory.reset(next);
        location.in_device = IsIn(next, roots);
        walked += "/";
    }
    if (location.name.empty()) Fail(path, strerror(EISDIR));
    return location;
}

// Throws InputError if writing the path would replace an input. `status` is that of the file at the
// path, or null.
void CheckIsNoInput(const std::string& path, const Location& location, const struct stat* status,
                    const std::vector<std::string>& inputs) {
    constexpr char kRead[] = "this is an input; write the result to another file";
    for (const std::string& input : inputs) {
        struct stat read;
        if (status == nullptr || stat(input.c_str(), &read) != 0 || !S_ISREG(read.st_mode))
            continue;
        if (read.st_dev == status->st_dev && read.st_ino == status->st_ino) Fail(path, kRead);
    }
    if (!location.in_device) return;
    const sandbox::FileName name = sandbox::ParseFileName(location.name);
    if (!name.image.empty() || name.is_archive) {
        Fail(path,
             "the device's images and archives have such names; give the result another name");
    }
}

// Throws InputError if the file is a link or anything else but a regular file or directory.
void CheckRegular(const std::string& path, const struct stat& status) {
    if (S_ISLNK(status.st_mode)) FailAtLink(path, path);
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) Fail(path, "not a regular file");
}

void WriteTo(int fd, const std::string& path, const std::string& content) {
    if (!android::base::WriteStringToFd(content, fd)) FailWithErrno(path);
}

// A new file with a temporary name. It is removed unless it gets its final name.
class NewFile {
  public:
    NewFile(int directory, const std::string& path) : directory_(directory) {
        do {
            uint64_t random = 0;
            if (getrandom(&random, sizeof(random), 0) != sizeof(random)) FailWithErrno(path);
            char name[32];
            snprintf(name, sizeof(name), ".extprop-%016llx",
                     static_cast<unsigned long long>(random));
            name_ = name;
            fd_.reset(openat(directory, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                             0666));
        } while (!fd_.ok() && errno == EEXIST);
        if (!fd_.ok()) FailWithErrno(path);
    }
    ~NewFile() {
        if (!name_.empty()) unlinkat(directory_, name_.c_str(), 0);
    }
    NewFile& operator=(NewFile&&) = delete;

    int fd() const { return fd_.get(); }

    bool MoveTo(const std::string& name) {
        if (renameat(directory_, name_.c_str(), directory_, name.c_str()) != 0) return false;
        name_.clear();
        return true;
    }

  private:
    int directory_;
    std::string name_;
    unique_fd fd_;
};

}  // namespace

std::optional<int> OwnDescriptor(const std::string& path) {
    constexpr const char* kNames[] = {"/dev/stdin", "/dev/stdout", "/dev/stderr"};
    for (int i = 0; i < 3; ++i) {
        if (path == kNames[i]) return i;
    }
    for (const char* directory : {"/dev/fd/", "/proc/self/fd/"}) {
        int number = 0;
        if (StartsWith(path, directory) &&
            android::base::ParseInt(path.substr(strlen(directory)), &number, 0)) {
            return number;
        }
    }
    return std::nullopt;
}

std::string ReadInput(const std::string& path, const std::vector<std::string>& inputs,
                      size_t limit) {
    unique_fd fd;
    struct stat status;
    if (const auto own = OwnDescriptor(path)) {
        fd.reset(fcntl(*own, F_DUPFD_CLOEXEC, 0));
    } else {
        const Location location = Locate(path, inputs);
        const int directory = location.directory.get();
        const char* name = location.name.c_str();
        if (location.in_device && fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) == 0) {
            CheckRegular(path, status);  // opening anything else might block
        }
        fd.reset(openat(directory, name,
                        O_RDONLY | O_CLOEXEC | O_NOCTTY | (location.in_device ? O_NOFOLLOW : 0)));
    }
    if (!fd.ok() || fstat(fd.get(), &status) != 0) FailWithErrno(path);
    const std::string too_large =
            "this has more than " + std::to_string(limit) + " bytes, which is the limit";
    if (S_ISREG(status.st_mode) && static_cast<uint64_t>(status.st_size) > limit) {
        Fail(path, too_large);
    }
    std::string content;
    if (S_ISREG(status.st_mode)) content.reserve(status.st_size);
    char buffer[64 * 1024];
    ssize_t size;
    while ((size = TEMP_FAILURE_RETRY(read(fd.get(), buffer, sizeof(buffer)))) > 0) {
        content.append(buffer, size);
        if (content.size() > limit) Fail(path, too_large);
    }
    if (size < 0) FailWithErrno(path);
    return content;
}

bool IsInputDirectory(const std::string& path, const std::vector<std::string>& inputs) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return false;
    const size_t last = path.find_last_not_of('/');
    if (last == std::string::npos) return true;
    const std::string bare = path.substr(0, last + 1);
    const Location location = Locate(bare, inputs);
    if (location.in_device && IsLink(location.directory.get(), location.name)) {
        FailAtLink(bare, bare);
    }
    return true;
}

void WriteOutput(const std::string& path, const std::vector<std::string>& inputs,
                 const std::string& content) {
    if (const auto own = OwnDescriptor(path)) {
        std::cout << std::flush;  // earlier output, which may go to the same file
        WriteTo(*own, path, content);
        return;
    }
    const Location location = Locate(path, inputs);
    const int directory = location.directory.get();
    struct stat status;
    const bool exists =
            fstatat(directory, location.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    if (!exists && errno != ENOENT) FailWithErrno(path);
    if (exists && (location.in_device || S_ISLNK(status.st_mode) || S_ISBLK(status.st_mode))) {
        CheckRegular(path, status);
    }
    CheckIsNoInput(path, location, exists ? &status : nullptr, inputs);
    if (exists && !S_ISREG(status.st_mode)) {
        const unique_fd fd(openat(directory, location.name.c_str(),
                                  O_WRONLY | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
        if (!fd.ok()) FailWithErrno(path);
        WriteTo(fd.get(), path, content);
        return;
    }
    NewFile file(directory, path);
    if (exists) {
        // If the user may not set the owner, the file becomes the user's own; the permissions are
        // kept in any case.
        if (fchown(file.fd(), status.st_uid, status.st_gid) != 0) errno = 0;
        if (fchmod(file.fd(), status.st_mode & 0777) != 0) FailWithErrno(path);
    }
    WriteTo(file.fd(), path, content);
    if (!file.MoveTo(location.name)) FailWithErrno(path);
}

std::string DevicePath(const std::string& device) {
    std::string path;
    struct stat status;
    if (!android::base::Realpath(device, &path) || stat(path.c_str(), &status) != 0 ||
        access(path.c_str(), S_ISDIR(status.st_mode) ? R_OK | X_OK : R_OK) != 0) {
        FailWithErrno(device);
    }
    return path;
}

}  // namespace extprop
