#include "view.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/stat.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <set>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "../kernel.h"

using android::base::unique_fd;

namespace sandbox {

namespace {

// The private folder has a directory of the device either whole or not at all, so that listing one
// is reading one. What such a directory has not changed itself stands for the device directory's:
// a placeholder of the same type, with the sticky bit, and links, which are copied.
constexpr mode_t kPlaceholder = S_ISVTX;

// This machine's user has to reach what root on the device could.
constexpr mode_t kReachableFile = 0600;
constexpr mode_t kReachableDirectory = 0700;

constexpr mode_t kPermissions = 07777;
constexpr int kMostLinks = 40;
constexpr off_t kSectorSize = 512;

// The time of the last change that a file gets once its changes are known. Nothing is written then
// any more, so that any other time tells of a change, however quick it was.
constexpr timespec kSeenTime = {1, 0};

long StatusOf(const std::string& real, struct stat* status) {
    return Kernel(SYS_newfstatat, AT_FDCWD, real.c_str(), status, AT_SYMLINK_NOFOLLOW);
}

long TargetOf(const std::string& real, std::string* target) {
    char buffer[PATH_MAX];
    const long size = Kernel(SYS_readlinkat, AT_FDCWD, real.c_str(), buffer, sizeof(buffer));
    if (size >= 0) target->assign(buffer, size);
    return size;
}

long OpenReal(const std::string& real, int flags, unique_fd* file) {
    const long fd = Kernel(SYS_openat, AT_FDCWD, real.c_str(), flags | O_NOFOLLOW | O_CLOEXEC,
                           kReachableFile);
    if (fd < 0) return fd;
    file->reset(static_cast<int>(fd));
    return 0;
}

void MarkSeen(const std::string& real) {
    const timespec times[] = {{0, UTIME_OMIT}, kSeenTime};
    Kernel(SYS_utimensat, AT_FDCWD, real.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

struct Listed {
    std::string name;
    unsigned char type;
};

long NamesIn(const std::string& real, std::vector<Listed>* names) {
    unique_fd directory;
    if (long error = OpenReal(real, O_RDONLY | O_DIRECTORY, &directory); error < 0) return error;
    alignas(dirent64) char buffer[32 * 1024];
    long size;
    while ((size = Kernel(SYS_getdents64, directory.get(), buffer, sizeof(buffer))) > 0) {
        for (long at = 0; at < size;) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer + at);
            at += entry->d_reclen;
            const std::string_view name = entry->d_name;
            if (name != "." && name != "..") names->push_back({std::string(name), entry->d_type});
        }
    }
    return size;
}

std::string ParentOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

bool IsBelow(const std::string& path, const std::string& directory) {
    return path.compare(0, directory.size(), directory) == 0 &&
           (path.size() == directory.size() || path[directory.size()] == '/');
}

// Returns what a path ends in, without slashes.
std::string_view LastName(std::string_view path) {
    path = path.substr(0, path.find_last_not_of('/') + 1);
    return path.substr(path.rfind('/') + 1);
}

mode_t Reachable(mode_t mode) {
    return (mode & kPermissions & ~kPlaceholder) |
           (S_ISDIR(mode) ? kReachableDirectory : kReachableFile);
}

// Makes a file of the type that stands for one of the device directory.
long MakePlaceholder(const std::string& from, const std::string& to, unsigned char type) {
    if (type == DT_UNKNOWN) {
        struct stat status;
        if (long error = StatusOf(from, &status); error < 0) return error;
        type = IFTODT(status.st_mode);
    }
    if (type == DT_LNK) {
        std::string target;
        if (long error = TargetOf(from, &target); error < 0) return error;
        return Kernel(SYS_symlinkat, target.c_str(), AT_FDCWD, to.c_str());
    }
    if (type == DT_DIR) {
        return Kernel(SYS_mkdirat, AT_FDCWD, to.c_str(), kReachableDirectory | kPlaceholder);
    }
    // Only root can make a device, and nothing opens one here.
    const mode_t node = type == DT_FIFO || type == DT_SOCK ? DTTOIF(type) : S_IFREG;
    return Kernel(SYS_mknodat, AT_FDCWD, to.c_str(), node | kReachableFile | kPlaceholder, 0);
}

long CopyContent(const std::string& from, int to) {
    unique_fd in;
    if (long error = OpenReal(from, O_RDONLY, &in); error < 0) return error;
    while (true) {
        constexpr size_t kMost = 1 << 30;
        const long copied = Kernel(SYS_sendfile, to, in.get(), nullptr, kMost);
        if (copied <= 0) return copied;
    }
}

}  // namespace

const char* Name(FileChange::Kind kind) {
    constexpr const char* kNames[] = {"created", "changed", "deleted"};
    return kNames[kind];
}

bool View::Played::operator==(const Played& other) const {
    return mode == other.mode && user == other.user && group == other.group;
}

View::View(std::string device, std::string state)
        : device_(std::move(device)),
          state_(std::move(state)),
          trees_({{device_, {}}}),
          mounts_({{0, "/", 0, ""}}) {  // a point that no path has: nothing is below the root
    mkdir(Upper("").c_str(), kReachableDirectory | kPlaceholder);
    chmod(Upper("").c_str(), kReachableDirectory | kPlaceholder);
    mkdir((state_ + "/played").c_str(), kReachableDirectory);
}

// --- Finding ------------------------------------------------------------------------------------

std::string View::PlayedPath(const struct stat& status) const {
    return state_ + "/played/" + std::to_string(status.st_ino);
}

// Puts in what is played of a private file. Returns false if nothing is.
bool View::GetPlayed(struct stat* status) const {
    std::string text;
    unsigned mode, user, group;
    const bool known = TargetOf(PlayedPath(*status), &text) > 0 &&
                       sscanf(text.c_str(), "%o:%u:%u", &mode, &user, &group) == 3;
    if (!known) {
        status->st_uid = status->st_gid = 0;  // who made it
        return false;
    }
    status->st_mode = (status->st_mode & S_IFMT) | mode;
    status->st_uid = user;
    status->st_gid = group;
    return true;
}

long View::SetPlayed(const std::string& real, const Played& played) const {
    struct stat status;
    if (long error = StatusOf(real, &status); error < 0) return error;
    const std::string path = PlayedPath(status);
    Kernel(SYS_unlinkat, AT_FDCWD, path.c_str(), 0);
    const mode_t mode = played.mode & kPermissions;
    if (played.user == 0 && played.group == 0 && mode == (status.st_mode & kPermissions)) return 0;
    char text[64];
    snprintf(text, sizeof(text), "%o:%u:%u", mode, played.user, played.group);
    return Kernel(SYS_symlinkat, text, AT_FDCWD, path.c_str());
}

// Plays the mode that a new file was asked to have, less what the process's mask took from it.
void View::SetPlayedMode(const std::string& real, mode_t mode) const {
    struct stat status;
    if (StatusOf(real, &status) == 0) SetPlayed(real, {mode & status.st_mode, 0, 0});
}

// Looks at `path`, whose parent is the directory.
void View::LookBelow(const Directory& parent, const std::string& path, Entry* entry) const {
    const size_t tree = mounts_[parent.mount].tree;
    *entry = Entry();
    entry->mount = parent.mount;
    entry->path = path;
    if (parent.is_private) {
        entry->real = Upper(path);
        entry->exists = StatusOf(entry->real, &entry->status) == 0;
        const bool is_placeholder = (entry->status.st_mode & kPlaceholder) != 0;
        if (!entry->exists) return;
        if (entry->is_link() || !is_placeholder) {
            entry->is_private = true;
            if (GetPlayed(&entry->status) || !entry->is_link()) return;
            // A link is its own placeholder.
            struct stat original;
            std::string target, original_target;
            if (TargetOf(entry->real, &target) > 0 &&
                TargetOf(device_ + path, &original_target) > 0 && target == original_target &&
                StatusOf(device_ + path, &original) == 0) {
                entry->status = original;
            }
            return;
        }
    }
    entry->real = trees_[tree].directory + path;
    entry->exists = StatusOf(entry->real, &entry->status) == 0;
    if (tree == 0) return;
    entry->status.st_uid = entry->status.st_gid = 0;  // not whoever unpacked it
    if (!entry->exists) NoteLeftOut(*entry);
}

// Looks at a path whose parent, if it has one, is there.
void View::LookAt(int mount, const std::string& path, Entry* entry) const {
    if (!path.empty()) return LookBelow(DirectoryAt(mount, ParentOf(path)), path, entry);
    *entry = Entry();
    entry->mount = mount;
    entry->path = path;
    entry->is_private = DirectoryAt(mount, path).is_private;
    entry->real = entry->is_private ? Upper(path) : trees_[mounts_[mount].tree].directory;
    entry->exists = StatusOf(entry->real, &entry->status) == 0;
    if (entry->is_private) GetPlayed(&entry->status);
}

// Goes on from a mount point to what is mounted there.
void View::EnterMounts(int* mount, std::string* path) const {
    for (int top = static_cast<int>(mounts_.size()) - 1; top > 0; --top) {
        if (mounts_[top].parent != *mount || mounts_[top].point != *path) continue;
        *mount = top;
        *path = mounts_[top].root;
        return EnterMounts(mount, path);
    }
}

View::Directory View::DirectoryAt(int mount, const std::string& path) const {
    struct stat status;
    const bool is_private = mounts_[mount].tree == 0 && StatusOf(Upper(path), &status) == 0 &&
                            (status.st_mode & kPlaceholder) == 0;
    return {mount, path, is_private};
}

long View::Walk(const Start& start, std::string_view path, Last last, Entry* entry) const {
    if (path.empty()) return -ENOENT;
    if (path.size() >= PATH_MAX) return -ENAMETOOLONG;
    std::string rest(path);
    const Directory root = DirectoryAt(0, "");
    Directory at = rest[0] == '/' ? root : DirectoryAt(start.mount, start.path);
    for (int links = 0;;) {
        const size_t begin = std::min(rest.find_first_not_of('/'), rest.size());
        const size_t end = std::min(rest.find('/', begin), rest.size());
        const std::string name = rest.substr(begin, end - begin);
        rest.erase(0, end);
        const bool is_last = rest.find_first_not_of('/') == std::string::npos;
        if (name.size() > NAME_MAX) return -ENAMETOOLONG;
        if (name == "..") {
            std::string above = at.path;
            while (at.mount != 0 && above == mounts_[at.mount].root) {
                above = mounts_[at.mount].point;
                at.mount = mounts_[at.mount].parent;
            }
            above = ParentOf(above);
            EnterMounts(&at.mount, &above);
            at = DirectoryAt(at.mount, above);
        }
        if (name.empty() || name == "." || name == "..") {
            if (!is_last) continue;
            LookAt(at.mount, at.path, entry);
            return 0;
        }

        LookBelow(at, at.path + "/" + name, entry);
        const bool ends_in_slash = is_last && !rest.empty();
        entry->ends_in_slash = ends_in_slash;
        if (!entry->exists) return is_last ? 0 : -ENOENT;
        if (is_last && last == kPlaceItself) return 0;
        if (entry->is_link() && (!is_last || last == kFollow || ends_in_slash)) {
            if (++links > kMostLinks) return -ELOOP;
            std::string target;
            if (long error = TargetOf(entry->real, &target); error < 0) return error;
            rest.insert(0, target);
            if (rest[0] == '/') at = root;
            continue;
        }
        int mount = entry->mount;
        std::string below = entry->path;
        EnterMounts(&mount, &below);
        if (mount != entry->mount) LookAt(mount, below, entry);
        if ((!is_last || ends_in_slash) && !entry->is_directory()) return -ENOTDIR;
        if (is_last) return 0;
        at = {entry->mount, entry->path, entry->is_private};
    }
}

long View::Find(std::string_view path, bool follow, Entry* entry) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return Walk({}, path, follow ? kFollow : kLinkItself, entry);
}

std::string View::PathOf(const Entry& entry) const {
    std::string path = entry.path;
    for (int mount = entry.mount; mount != 0; mount = mounts_[mount].parent) {
        path = mounts_[mount].point + path.substr(mounts_[mount].root.size());
    }
    return path;
}

long View::List(const Entry& directory, std::vector<std::string>* names) const {
    std::vector<Listed> found;
    const long error = NamesIn(directory.real, &found);
    for (auto& entry : found) names->push_back(std::move(entry.name));
    return error;
}

bool View::IsMountPoint(const Entry& entry) const {
    return std::any_of(mounts_.begin() + 1, mounts_.end(), [&](const Mount& mount) {
        return mounts_[mount.parent].tree == mounts_[entry.mount].tree && mount.point == entry.path;
    });
}

// --- Changing -----------------------------------------------------------------------------------

std::string View::NewName() const {
    static std::atomic<unsigned> count{0};
    return state_ + "/new-" + std::to_string(Kernel(SYS_getpid)) + "-" + std::to_string(++count);
}

// Makes the private folder have the directory, which the device has.
long View::Shadow(const std::string& directory) const {
    const std::string upper = Upper(directory);
    struct stat status;
    if (StatusOf(upper, &status) == 0 && (status.st_mode & kPlaceholder) == 0) return 0;
    if (!directory.empty()) {
        if (long error = Shadow(ParentOf(directory)); error < 0) return error;
    }
    const std::string original = device_ + directory;
    if (long error = StatusOf(original, &status); error < 0) return error;
    std::vector<Listed> names;
    if (long error = NamesIn(original, &names); error < 0) return error;
    const std::string unfinished = NewName();
    if (long error = Kernel(SYS_mkdirat, AT_FDCWD, unfinished.c_str(), kReachableDirectory);
        error < 0) {
        return error;
    }
    for (const auto& [name, type] : names) {
        if (long error = MakePlaceholder(original + "/" + name, unfinished + "/" + name, type);
            error < 0) {
            return error;
        }
    }
    Kernel(SYS_fchmodat, AT_FDCWD, unfinished.c_str(), Reachable(status.st_mode));
    SetPlayed(unfinished, {status.st_mode, status.st_uid, status.st_gid});
    return Kernel(SYS_renameat2, AT_FDCWD, unfinished.c_str(), AT_FDCWD, upper.c_str(), 0);
}

long View::ShadowParent(const std::string& path) const {
    return Shadow(ParentOf(path));
}

long View::CopyFile(Entry* entry) const {
    const std::string unfinished = NewName();
    const struct stat& status = entry->status;
    if (S_ISREG(status.st_mode)) {
        unique_fd copy;
        long error = OpenReal(unfinished, O_WRONLY | O_CREAT | O_EXCL, &copy);
        if (error >= 0) error = CopyContent(entry->real, copy.get());
        if (error < 0) return error;
    } else if (long error = Kernel(SYS_mknodat, AT_FDCWD, unfinished.c_str(),
                                   (status.st_mode & S_IFMT) | kReachableFile, 0);
               error < 0) {
        return error;
    }
    Kernel(SYS_fchmodat, AT_FDCWD, unfinished.c_str(), Reachable(status.st_mode));
    SetPlayed(unfinished, {status.st_mode, status.st_uid, status.st_gid});
    MarkSeen(unfinished);
    return Kernel(SYS_renameat2, AT_FDCWD, unfinished.c_str(), AT_FDCWD, Upper(entry->path).c_str(),
                  0);
}

// Makes the private folder have what there is, so that it can be changed.
long View::TakeOver(Entry* entry) const {
    if (!IsWritable(*entry)) return -EROFS;
    if (entry->is_private) return 0;
    if (entry->is_directory()) {
        if (long error = Shadow(entry->path); error < 0) return error;
    } else {
        if (long error = ShadowParent(entry->path); error < 0) return error;
        if (!entry->is_link()) {
            if (long error = CopyFile(entry); error < 0) return error;
        }
    }
    entry->is_private = true;
    entry->real = Upper(entry->path);
    return 0;
}

long View::Open(const Start& start, const char* path, int flags, mode_t mode, Entry* opened) {
    const bool creates = (flags & O_CREAT) != 0;
    const bool exclusive = creates && (flags & O_EXCL) != 0;
    const bool writes = (flags & O_ACCMODE) != O_RDONLY || (flags & O_TRUNC) != 0;
    if ((flags & O_TMPFILE) == O_TMPFILE) return -EOPNOTSUPP;
    Entry& entry = *opened;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        // What is created must not be named as a directory, whatever is there.
        const bool misnamed = creates && strlen(path) > 1 && path[strlen(path) - 1] == '/';
        const bool follow = (flags & O_NOFOLLOW) == 0 && !exclusive;
        const Last last = misnamed ? kPlaceItself : follow ? kFollow : kLinkItself;
        if (long error = Walk(start, path, last, &entry); error < 0) return error;
        if (misnamed) return -EISDIR;
        if (!entry.exists) {
            if (!creates) return -ENOENT;
            if (!IsWritable(entry)) return -EROFS;
            if (long error = ShadowParent(entry.path); error < 0) return error;
            entry.real = Upper(entry.path);
            entry.is_private = true;
            const long fd = Kernel(SYS_openat, AT_FDCWD, entry.real.c_str(), flags | O_NOFOLLOW,
                                   Reachable(S_IFREG | mode));
            if (fd >= 0) SetPlayedMode(entry.real, mode);
            return fd;
        }
        if (exclusive) return -EEXIST;
        const bool only_names = (flags & O_PATH) != 0;
        if (!only_names && !entry.is_link()) {
            if (entry.is_directory()) {
                if (writes || creates) return -EISDIR;
            } else if (S_ISCHR(entry.status.st_mode) || S_ISBLK(entry.status.st_mode)) {
                return -ENXIO;  // what it leads to is this machine's
            } else if (S_ISREG(entry.status.st_mode) ? writes : IsWritable(entry)) {
                if (long error = TakeOver(&entry); error < 0) return error;
            }
        }
        if (std::count(block_devices_.begin(), block_devices_.end(), entry.path) != 0) {
            flags &= ~O_TRUNC;
        }
    }
    // This may take for ever, as with a FIFO that nobody else opens.
    const long fd = Kernel(SYS_openat, AT_FDCWD, entry.real.c_str(),
                           (flags & ~(O_CREAT | O_EXCL)) | O_NOFOLLOW, 0);
    if (fd == -EACCES) Note(kDenied, entry);
    return fd;
}

long View::Access(const Start& start, const char* path, int mode) {
    std::lock_guard<std::mutex> lock(mutex_);
    Entry entry;
    if (long error = Walk(start, path, kFollow, &entry); error < 0) return error;
    if (!entry.exists) return -ENOENT;
    if ((mode & X_OK) != 0 && !entry.is_directory() && (entry.status.st_mode & 0111) == 0) {
        return -EACCES;
    }
    return (mode & W_OK) != 0 && !IsWritable(entry) ? -EROFS : 0;
}

long View::Status(const Start& start, const char* path, bool follow, struct stat* status) {
    std::lock_guard<std::mutex> lock(mutex_);
    Entry entry;
    if (long error = Walk(start, path, follow ? kFollow : kLinkItself, &entry); error < 0) {
        return error;
    }
    if (!entry.exists) return -ENOENT;
    *status = entry.status;
    return 0;
}

long View::ReadLink(const Start& start, const char* path, char* target, size_t size) {
    std::lock_guard<std::mutex> lock(mutex_);
    Entry entry;
    if (long error = Walk(start, path, kLinkItself, &entry); error < 0) return error;
    if (!entry.exists) return -ENOENT;
    if (!entry.is_link()) return -EINVAL;
    return Kernel(SYS_readlinkat, AT_FDCWD, entry.real.c_str(), target, size);
}

long View::MakeDirectory(const Start& start, const char* path, mode_t mode) {
    std::lock_guard<std::mutex> lock(mutex_);
    Entry entry;
    if (long error = Walk(start, path, kPlaceItself, &entry); error < 0) return error;
    if (entry.exists) return -EEXIST;
    if (!IsWritable(entry)) return -EROFS;
    if (long error = ShadowParent(entry.path); error < 0) return error;
    const std::string upper = Upper(entry.path);
    const long made =
            Kernel(SYS_mkdirat, AT_FDCWD, upper.c_str(), Reachable(S_IFDIR | (mode & 01777)));
    if (made == 0) SetPlayedMode(upper, mode);
    return made;
}

// Finds what is to be removed or changed itself, in a mount that can be written.
long View::FindForChange(const Start& start, const char* path, Last last, Entry* entry) const {
    if (long error = Walk(start, path, last, entry); error < 0) return error;
    if (!entry->exists) return -ENOENT;
    return IsWritable(*entry) ? 0 : -EROFS;
}

long View::Remove(const Start& start, const char* path, bool directory) {
    std::lock_guard<std::mutex> lock(mutex_);
    Entry entry;
    if (long error = FindForChange(start, path, kPlaceItself, &entry); error < 0) return error;
    const std::string_view name = LastName(path);
    if (directory && name == ".") return -EINVAL;
    if (directory && name == "..") return -ENOTEMPTY;
    if (directory && !entry.is_directory()) return -ENOTDIR;
    if (!directory && entry.is_directory()) return -EISDIR;
    if (entry.ends_in_slash && !entry.is_directory()) return -ENOTDIR;
    if (entry.path.empty() || IsMountPoint(entry)) return -EBUSY;
    // Whether a directory is empty shows when all of it is private.
    long error = directory ? Shadow(entry.path) : ShadowParent(entry.path);
    if (error < 0) return error;
    const std::string upper = Upper(entry.path);
    struct stat status;
    StatusOf(upper, &status);
    error = Kernel(SYS_unlinkat, AT_FDCWD, upper.c_str(), directory ? AT_REMOVEDIR : 0);
    if (error == 0) Kernel(SYS_unlinkat, AT_FDCWD, PlayedPath(status).c_str(), 0);
    return error;
}

long View::ChangeOwner(const Start& start, const char* path, bool follow, uid_t user, gid_t group) {
    std::lock_guard<std::mutex> lock(mutex_);
    Entry entry;
    if (long error = FindForChange(start, path, follow ? kFollow : kLinkItself, &entry);
        error < 0) {
        return error;
    }
    Played played = {entry.status.st_mode, entry.status.st_uid, entry.status.st_gid};
    if (user != static_cast<uid_t>(-1)) played.user = user;
    if (group != static_cast<gid_t>(-1)) played.group = group;
    if (long error = TakeOver(&entry); error < 0) return error;
    return SetPlayed(entry.real, played);
}

long View::ChangeMode(const Start& start, const char* path, mode_t mode) {
    std::lock_guard<std::mutex> lock(mutex_);
    Entry entry;
    if (long error = FindForChange(start, path, kFollow, &entry); error < 0) return error;
    const Played played = {mode, entry.status.st_uid, entry.status.st_gid};
    if (long error = TakeOver(&entry); error < 0) return error;
    const mode_t reachable = Reachable((entry.status.st_mode & S_IFMT) | (mode & kPermissions));
    if (long error = Kernel(SYS_fchmodat, AT_FDCWD, entry.real.c_str(), reachable); error < 0) {
        return error;
    }
    return SetPlayed(entry.real, played);
}

long View::Bind(const char* source, const char* target, bool recursive) {
    std::lock_guard<std::mutex> lock(mutex_);
    Entry from, to;
    if (long error = Walk({}, target, kFollow, &to); error < 0) return error;
    if (!to.exists) return -ENOENT;
    if (source == nullptr || source[0] == '\0') return -EINVAL;
    if (long error = Walk({}, source, kFollow, &from); error < 0) return error;
    if (!from.exists) return -ENOENT;
    if (from.is_directory() != to.is_directory()) return -ENOTDIR;
    EnterMounts(&to.mount, &to.path);  // a mount on the root is not entered by paths

    // With all that is mounted below, each mount once its parent is there.
    std::vector<std::pair<int, int>> copies = {{from.mount, static_cast<int>(mounts_.size())}};
    const size_t old_count = mounts_.size();
    mounts_.push_back({to.mount, to.path, mounts_[from.mount].tree, from.path});
    for (size_t i = 0; recursive && i < copies.size(); ++i) {
        const auto [original, copy] = copies[i];
        for (size_t below = 1; below < old_count; ++below) {
            const Mount mount = mounts_[below];
            if (mount.parent != original || !IsBelow(mount.point, mounts_[copy].root)) continue;
            // What lies on the source's own root covers it, and was found in its stead.
            if (i == 0 && mount.point == from.path) continue;
            copies.emplace_back(below, mounts_.size());
            mounts_.push_back({copy, mount.point, mount.tree, mount.root});
        }
    }
    return 0;
}

std::pair<size_t, std::string> View::TreeAt(const std::string& path) const {
    Entry entry;
    if (trees_.size() == 1 || Find(path, false, &entry) < 0) return {0, ""};
    return {mounts_[entry.mount].tree, entry.path};
}

void View::Note(const char* list, const Entry& entry) const {
    // The file outlives this process, which may be a boxed one.
    const std::string line = PathOf(entry) + "\n";
    const long fd = Kernel(SYS_openat, AT_FDCWD, (state_ + "/" + list).c_str(),
                           O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kReachableFile);
    const unique_fd file(fd < 0 ? -1 : static_cast<int>(fd));
    if (file.ok() && write(file.get(), line.data(), line.size()) == -1) return;
}

void View::NoteLeftOut(const Entry& entry) const {
    const Tree& tree = trees_[mounts_[entry.mount].tree];
    for (const std::string& directory : tree.left_out) {
        if (IsBelow(entry.path, "/" + directory)) Note(kLeftOut, entry);
    }
}

std::vector<std::string> View::Noted(const char* list) const {
    std::string text;
    android::base::ReadFileToString(state_ + "/" + list, &text);
    std::set<std::string> paths;
    for (const std::string& line : android::base::Split(text, "\n")) paths.insert(line);
    paths.erase("");
    return {paths.begin(), paths.end()};
}

// --- What stands in the device's place ----------------------------------------------------------

long View::ShowTree(const std::string& content, const std::string& place,
                    std::vector<std::string> left_out) {
    Entry entry;
    for (size_t slash = 0; slash != std::string::npos;) {
        slash = place.find('/', slash + 1);
        const std::string part = place.substr(0, slash);
        long error = MakeDirectory({}, part.c_str(), 0755);
        if (error < 0 && error != -EEXIST) return error;
        // A link may lead to a place that is missing.
        if (Find(part, true, &entry) == 0 && !entry.exists) return -ENOENT;
    }
    if (long error = Find(place, true, &entry); error < 0) return error;
    if (!entry.is_directory()) return -ENOTDIR;
    trees_.push_back({content, std::move(left_out)});
    mounts_.push_back({entry.mount, entry.path, trees_.size() - 1, ""});
    return 0;
}

long View::MakeLink(const std::string& target, const std::string& path) {
    Entry entry;
    if (long error = Find(path, false, &entry); error < 0) return error;
    if (entry.exists) return 0;
    if (long error = ShadowParent(entry.path); error < 0) return error;
    return Kernel(SYS_symlinkat, target.c_str(), AT_FDCWD, Upper(entry.path).c_str());
}

long View::MakeBlockDevice(const std::string& path) {
    Entry entry;
    if (long error = Find(path, true, &entry); error < 0) return error;
    if (!entry.exists) return -ENOENT;
    if (!S_ISREG(entry.status.st_mode)) return -ENOTBLK;
    if (long error = TakeOver(&entry); error < 0) return error;
    const off_t whole = entry.status.st_size - entry.status.st_size % kSectorSize;
    if (truncate(entry.real.c_str(), whole) != 0) return -errno;
    MarkSeen(entry.real);
    block_devices_.push_back(entry.path);
    return 0;
}

// --- What has changed ---------------------------------------------------------------------------

std::optional<View::Played> View::StateInDevice(const std::string& path) const {
    struct stat status;
    if (StatusOf(device_ + path, &status) != 0) return std::nullopt;
    return Played{status.st_mode, status.st_uid, status.st_gid};
}

void View::CollectDeleted(const std::string& path, States* states) const {
    const std::optional<Played> state = StateInDevice(path);
    (*states)[path] = std::nullopt;
    std::vector<Listed> names;
    if (!state || !S_ISDIR(state->mode) || NamesIn(device_ + path, &names) < 0) return;
    for (const auto& entry : names) CollectDeleted(path + "/" + entry.name, states);
}

// Adds what the directory, which is private, and those below it have that may differ from the
// device directory, and of the files those that were written.
void View::Collect(const std::string& directory, States* states,
                   std::map<std::string, std::string>* written) const {
    std::vector<Listed> names, original_names;
    NamesIn(Upper(directory), &names);
    NamesIn(device_ + directory, &original_names);
    std::set<std::string> missing;
    for (const auto& entry : original_names) missing.insert(entry.name);
    for (const auto& [name, type] : names) {
        missing.erase(name);
        const std::string path = directory + "/" + name;
        Entry entry;
        LookBelow({0, directory, true}, path, &entry);
        if (!entry.is_private) continue;
        const struct stat& status = entry.status;
        (*states)[path] = Played{status.st_mode, status.st_uid, status.st_gid};
        if (entry.is_directory()) {
            Collect(path, states, written);
        } else if (!entry.is_link() && (status.st_mtim.tv_sec != kSeenTime.tv_sec ||
                                        status.st_mtim.tv_nsec != kSeenTime.tv_nsec)) {
            written->emplace(path, entry.real);
        }
    }
    for (const std::string& name : missing) CollectDeleted(directory + "/" + name, states);
}

std::vector<FileChange> View::TakeChanges() {
    std::lock_guard<std::mutex> lock(mutex_);
    States now;
    std::map<std::string, std::string> written;
    if (DirectoryAt(0, "").is_private) Collect("", &now, &written);

    const auto state_in = [this](const States& states, const std::string& path) {
        auto known = states.find(path);
        return known != states.end() ? known->second : StateInDevice(path);
    };
    States all = now;
    all.insert(seen_.begin(), seen_.end());
    std::vector<FileChange> changes;
    for (const auto& [path, state] : all) {
        const std::optional<Played> before = state_in(seen_, path), after = state_in(now, path);
        if (!before && !after) continue;
        if (!before) {
            changes.push_back({FileChange::kCreated, path});
        } else if (!after) {
            changes.push_back({FileChange::kDeleted, path});
        } else if (!(*before == *after) || written.count(path) != 0) {
            changes.push_back({FileChange::kChanged, path});
        }
    }
    for (const auto& [path, real] : written) MarkSeen(real);
    seen_ = std::move(now);
    return changes;
}

}  // namespace sandbox
