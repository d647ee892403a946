#include "snapshot.h"

#include <fcntl.h>
#include <time.h>

#include <filesystem>

#include <android-base/file.h>

namespace sandbox {

namespace {

// A file that is rewritten within one tick of the file system's clock looks the same afterwards, so
// what was written a moment ago is kept to be compared itself.
constexpr time_t kRecentSeconds = 2;
constexpr off_t kSmall = 64 * 1024;

bool SameTime(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

FileState StateOf(const std::string& path, const struct stat& status, time_t now) {
    FileState state{status, std::nullopt};
    if (S_ISREG(status.st_mode) && status.st_size <= kSmall &&
        status.st_mtim.tv_sec >= now - kRecentSeconds) {
        std::string content;
        if (android::base::ReadFileToString(path, &content)) state.content = content;
    }
    return state;
}

bool IsMountPoint(const std::string& path) {
    struct statx status;
    return statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, 0, &status) == 0 &&
           (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

}  // namespace

bool FileState::operator==(const FileState& other) const {
    const struct stat& a = status;
    const struct stat& b = other.status;
    if (a.st_mode != b.st_mode || a.st_uid != b.st_uid || a.st_gid != b.st_gid) return false;
    if (S_ISDIR(a.st_mode)) return true;
    if (a.st_size != b.st_size || a.st_rdev != b.st_rdev || !SameTime(a.st_mtim, b.st_mtim)) {
        return false;
    }
    return !content || !other.content || *content == *other.content;
}

Snapshot TakeSnapshot(const std::string& directory) {
    namespace fs = std::filesystem;
    Snapshot snapshot;
    const time_t now = time(nullptr);
    const auto options = fs::directory_options::skip_permission_denied;
    std::error_code error;
    for (fs::recursive_directory_iterator entry(directory, options, error), end; entry != end;
         entry.increment(error)) {
        const std::string& path = entry->path().native();
        struct stat status;
        if (lstat(path.c_str(), &status) != 0) continue;
        if (S_ISDIR(status.st_mode) && IsMountPoint(path)) entry.disable_recursion_pending();
        snapshot.emplace(path.substr(directory.size()), StateOf(path, status, now));
    }
    return snapshot;
}

std::vector<FileChange> Changes(const Snapshot& before, const Snapshot& after) {
    std::vector<FileChange> changes;
    auto old = before.begin();
    auto now = after.begin();
    while (old != before.end() || now != after.end()) {
        if (now == after.end() || (old != before.end() && old->first < now->first)) {
            changes.push_back({FileChange::kDeleted, old++->first});
        } else if (old == before.end() || now->first < old->first) {
            changes.push_back({FileChange::kCreated, now++->first});
        } else {
            if (!(old->second == now->second)) {
                changes.push_back({FileChange::kChanged, now->first});
            }
            ++old, ++now;
        }
    }
    return changes;
}

}  // namespace sandbox
