#include "view.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stddef.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "../budget.h"
#include "../kernel.h"

using android::base::unique_fd;

namespace sandbox {

namespace {

constexpr int kMostLinks = 40;

bool IsBelow(const std::string& path, const std::string& directory) {
    return path.compare(0, directory.size(), directory) == 0 &&
           (path.size() == directory.size() || path[directory.size()] == '/');
}

// Returns whether the path is that of something removed that a mount still shows.
bool IsRemoved(const std::string& path) {
    return !path.empty() && path[0] != '/';
}

// Returns the last name of a path, without slashes.
std::string_view LastName(std::string_view path) {
    path = path.substr(0, path.find_last_not_of('/') + 1);
    return path.substr(path.rfind('/') + 1);
}

}  // namespace

View::View(std::shared_ptr<const Tree> device, std::string state, std::string notes)
        : notes_(std::move(notes)),
          device_(std::move(device)),
          layer_(std::make_shared<PrivateLayer>(*device_, std::move(state))),
          trees_({layer_}),
          mounts_({{0, "/", 0, ""}}) {}  // a mount point that no path reaches

// --- Finding ------------------------------------------------------------------------------------

// Gets the status of a path whose parent, if it has one, exists.
long View::Look(int mount, const std::string& path, ResolvedPath* entry) const {
    *entry = ResolvedPath();
    entry->mount = mount;
    entry->path = path;
    if (IsRemoved(path) && path != mounts_[mount].root) return -ENOENT;
    const long error = TreeOf(*entry).Status(path, &entry->status);
    entry->exists = error == 0;
    // The directory is what cannot be searched.
    if (error == -EACCES) Note(kDenied, ParentOf(PathOf(*entry)));
    return error == -ENOENT ? 0 : error;
}

// If the path is a mount point, replaces it by what is mounted there.
void View::EnterMounts(int* mount, std::string* path) const {
    for (int top = static_cast<int>(mounts_.size()) - 1; top > 0; --top) {
        if (mounts_[top].parent != *mount || mounts_[top].point != *path) continue;
        *mount = top;
        *path = mounts_[top].root;
        return EnterMounts(mount, path);
    }
}

// Returns where the directory of an absolute path was found before, or null. Then `*key` is what to
// cache it by.
const View::CachedDirectory* View::FindCached(const std::string& directory,
                                              std::string* key) const {
    constexpr size_t kMostDirectories = 1024;
    const std::pair<uint64_t, size_t> now = {layer_->changes(), mounts_.size()};
    if (now != directories_at_ || directories_.size() >= kMostDirectories) directories_.clear();
    directories_at_ = now;
    const auto known = directories_.find(directory);
    if (known != directories_.end()) return &known->second;
    *key = directory;
    return nullptr;
}

long View::Walk(const Start& start, std::string_view path, Last last, ResolvedPath* entry) const {
    if (path.empty()) return -ENOENT;
    if (path.size() >= PATH_MAX) return -ENAMETOOLONG;
    std::string rest(path);
    Start at = rest[0] == '/' ? Start() : start;
    int links = 0;
    std::string directory;  // set for an absolute path whose directory is to be cached
    if (rest.front() == '/' && rest.back() != '/') {
        const CachedDirectory* known = FindCached(rest.substr(0, rest.rfind('/')), &directory);
        if (known != nullptr) {
            at = known->directory;
            links = known->links;
            rest.erase(0, rest.rfind('/'));
        }
    }
    while (true) {
        const size_t begin = std::min(rest.find_first_not_of('/'), rest.size());
        const size_t end = std::min(rest.find('/', begin), rest.size());
        const std::string name = rest.substr(begin, end - begin);
        rest.erase(0, end);
        const bool is_last = rest.find_first_not_of('/') == std::string::npos;
        if (name.size() > NAME_MAX) return -ENAMETOOLONG;
        if (is_last && !directory.empty()) directories_[std::exchange(directory, "")] = {at, links};
        if (name == "..") {
            std::string above = at.path;
            while (at.mount != 0 && above == mounts_[at.mount].root) {
                above = mounts_[at.mount].point;
                at.mount = mounts_[at.mount].parent;
            }
            above = above.empty() ? "" : ParentOf(above);
            EnterMounts(&at.mount, &above);
            at.path = above;
        }
        if (name.empty() || name == "." || name == "..") {
            if (!is_last) continue;
            return Look(at.mount, at.path, entry);
        }

        if (long error = Look(at.mount, at.path + "/" + name, entry); error < 0) return error;
        const bool ends_in_slash = is_last && !rest.empty();
        entry->ends_in_slash = ends_in_slash;
        if (!entry->exists) return is_last ? 0 : -ENOENT;
        if (is_last && last == kPlaceItself) return 0;
        if (entry->is_link() && (!is_last || last == kFollow || ends_in_slash)) {
            if (++links > kMostLinks) return -ELOOP;
            std::string target;
            if (long error = TreeOf(*entry).Target(entry->path, &target); error < 0) return error;
            rest.insert(0, target);
            if (rest.size() >= 2 * PATH_MAX) return -ENAMETOOLONG;
            if (rest[0] == '/') at = Start();
            continue;
        }
        int mount = entry->mount;
        std::string below = entry->path;
        EnterMounts(&mount, &below);
        if (mount != entry->mount) {
            if (long error = Look(mount, below, entry); error < 0) return error;
        }
        if ((!is_last || ends_in_slash) && !entry->is_directory()) return -ENOTDIR;
        if (is_last) return 0;
        at = {entry->mount, entry->path};
    }
}

long View::Find(std::string_view path, bool follow, ResolvedPath* entry) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return Walk({}, path, follow ? kFollow : kLinkItself, entry);
}

long View::FindIn(const ResolvedPath& directory, const std::string& name,
                  ResolvedPath* entry) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return Walk({directory.mount, directory.path}, name, kLinkItself, entry);
}

std::string View::PathOf(const ResolvedPath& entry) const {
    std::string path = entry.path;
    for (int mount = entry.mount; mount != 0; mount = mounts_[mount].parent) {
        path = mounts_[mount].point + path.substr(mounts_[mount].root.size());
    }
    return path;
}

long View::List(const ResolvedPath& directory, std::vector<Listed>* names) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const long error = TreeOf(directory).List(directory.path, names);
    if (error == -EACCES) Note(kDenied, PathOf(directory));
    return error;
}

long View::Read(const std::string& path, size_t most, std::string* content) const {
    std::lock_guard<std::mutex> lock(mutex_);
    ResolvedPath entry;
    if (long error = Walk({}, path, kLinkItself, &entry); error < 0) return error;
    if (!entry.exists) return -ENOENT;
    if (entry.is_directory()) return -EISDIR;
    if (entry.status.st_size > static_cast<off_t>(most)) return -EFBIG;
    const long fd = TreeOf(entry).Open(entry.path, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return fd;
    const unique_fd file(static_cast<int>(fd));
    content->resize(entry.status.st_size);
    size_t size = 0;
    ssize_t part = 1;
    while (size < content->size() && part != 0) {
        part = TEMP_FAILURE_RETRY(read(file.get(), content->data() + size, content->size() - size));
        if (part == -1) return -errno;
        size += part;
    }
    content->resize(size);
    return 0;
}

long View::OpenToRead(const std::string& path, bool follow) const {
    std::lock_guard<std::mutex> lock(mutex_);
    ResolvedPath entry;
    if (long error = Walk({}, path, follow ? kFollow : kLinkItself, &entry); error < 0) {
        return error;
    }
    if (!entry.exists) return -ENOENT;
    if (entry.is_directory()) return -EISDIR;
    return TreeOf(entry).Open(entry.path, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
}

bool View::has_only_kernels() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return std::all_of(trees_.begin(), trees_.end(),
                       [](const auto& tree) { return tree->is_kernels(); });
}

bool View::is_kernels(const Start& place) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return trees_[mounts_[place.mount].tree]->is_kernels();
}

long View::StatusOf(const Start& place, struct stat* status) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return trees_[mounts_[place.mount].tree]->Status(place.path, status);
}

long View::ReadDirectory(const Start& place, size_t* next, char* buffer, size_t size) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const Tree& tree = *trees_[mounts_[place.mount].tree];
    std::vector<Listed> names = {{".", DT_DIR}, {"..", DT_DIR}};
    if (long error = tree.List(place.path, &names); error < 0) return error;
    size_t used = 0;
    for (; *next < names.size(); ++*next) {
        auto& [name, type] = names[*next];
        const size_t length =
                (offsetof(dirent64, d_name) + name.size() + sizeof('\0') + alignof(dirent64) - 1) /
                alignof(dirent64) * alignof(dirent64);
        if (length > size - used) return used == 0 ? -EINVAL : static_cast<long>(used);
        struct stat status;
        if (type == DT_UNKNOWN && tree.Status(place.path + "/" + name, &status) == 0) {
            type = IFTODT(status.st_mode);
        }
        auto* entry = reinterpret_cast<dirent64*>(buffer + used);
        entry->d_ino = *next + 1;
        entry->d_off = static_cast<off64_t>(*next + 1);
        entry->d_reclen = static_cast<unsigned short>(length);
        entry->d_type = type;
        memcpy(entry->d_name, name.c_str(), name.size() + 1);
        used += length;
    }
    return static_cast<long>(used);
}

bool View::IsMountPoint(const ResolvedPath& entry) const {
    return std::any_of(mounts_.begin() + 1, mounts_.end(), [&](const Mount& mount) {
        return mounts_[mount.parent].tree == mounts_[entry.mount].tree && mount.point == entry.path;
    });
}

// --- Changing -----------------------------------------------------------------------------------

// Opens a regular file, and refuses one that is too large. The library opens property and key files
// with O_NOFOLLOW; all that it opens in other ways is partitions and logos, which may be larger.
long View::OpenRegular(const ResolvedPath& entry, int flags) {
    const bool reads = (flags & O_ACCMODE) == O_RDONLY && (flags & O_TRUNC) == 0;
    const uint64_t most =
            (flags & O_NOFOLLOW) != 0 ? limits::kPropertyFile : limits::kPartitionFile;
    flags &= ~(O_CREAT | O_EXCL);
    long fd;
    if (!reads) {
        fd = IsWritable(entry) ? layer_->OpenForChange(entry.path, flags) : -EROFS;
    } else if (entry.status.st_size > static_cast<off_t>(most)) {
        fd = -EFBIG;
    } else {
        fd = TreeOf(entry).Open(entry.path, flags);
    }
    if (fd == -EACCES) Note(kDenied, PathOf(entry));
    if (fd == -EFBIG) Note(kTooLarge, PathOf(entry));
    return fd;
}

long View::Open(const Start& start, const char* path, int flags, mode_t mode,
                ResolvedPath* opened) {
    const bool creates = (flags & O_CREAT) != 0;
    const bool exclusive = creates && (flags & O_EXCL) != 0;
    const bool writes = (flags & O_ACCMODE) != O_RDONLY || (flags & O_TRUNC) != 0;
    if ((flags & O_TMPFILE) == O_TMPFILE) return -EOPNOTSUPP;
    ResolvedPath& entry = *opened;
    std::string special;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        // A file that is created must not have a directory's name, even if it exists.
        const std::string_view name = LastName(path);
        const bool misnamed = creates && name != "" && name != "." && name != ".." &&
                              path[strlen(path) - 1] == '/';
        const bool follow = (flags & O_NOFOLLOW) == 0 && !exclusive;
        const Last last = misnamed ? kPlaceItself : follow ? kFollow : kLinkItself;
        if (long error = Walk(start, path, last, &entry); error < 0) return error;
        if (misnamed) return -EISDIR;
        if (!entry.exists) {
            if (!creates) return -ENOENT;
            return IsWritable(entry) ? layer_->Create(entry.path, flags, mode) : -EROFS;
        }
        if (exclusive) return -EEXIST;
        const bool only_names = (flags & O_PATH) != 0;
        if (!only_names && S_ISREG(entry.status.st_mode)) return OpenRegular(entry, flags);
        if (only_names || entry.is_directory() || entry.is_link()) {
            if (entry.is_directory() && !only_names && (writes || creates)) return -EISDIR;
            flags &= ~(O_CREAT | O_EXCL);
            const long fd = IsRemoved(entry.path) ? layer_->OpenRemoved(flags)
                                                  : TreeOf(entry).Open(entry.path, flags);
            if (fd == -EACCES) Note(kDenied, PathOf(entry));
            return fd;
        }
        // Any other special file would lead to a device or process of this machine.
        if (!S_ISFIFO(entry.status.st_mode)) return -ENXIO;
        if (long error = layer_->FindFifo(IsWritable(entry) ? &entry.path : nullptr, &special);
            error < 0) {
            return error;
        }
    }
    // This may block for ever, since no other process opens the FIFO.
    return Kernel(SYS_openat, layer_->directory(), special.c_str(),
                  (flags & ~(O_CREAT | O_EXCL)) | O_NOFOLLOW, 0);
}

long View::Access(const Start& start, const char* path, int mode) {
    std::lock_guard<std::mutex> lock(mutex_);
    ResolvedPath entry;
    if (long error = Walk(start, path, kFollow, &entry); error < 0) return error;
    if (!entry.exists) return -ENOENT;
    if ((mode & X_OK) != 0 && !entry.is_directory() && (entry.status.st_mode & 0111) == 0) {
        return -EACCES;
    }
    return (mode & W_OK) != 0 && !IsWritable(entry) ? -EROFS : 0;
}

long View::Status(const Start& start, const char* path, bool follow, struct stat* status) {
    std::lock_guard<std::mutex> lock(mutex_);
    ResolvedPath entry;
    if (long error = Walk(start, path, follow ? kFollow : kLinkItself, &entry); error < 0) {
        return error;
    }
    if (!entry.exists) return -ENOENT;
    *status = entry.status;
    return 0;
}

long View::ReadLink(const Start& start, const char* path, char* target, size_t size) {
    std::lock_guard<std::mutex> lock(mutex_);
    ResolvedPath entry;
    if (long error = Walk(start, path, kLinkItself, &entry); error < 0) return error;
    if (!entry.exists) return -ENOENT;
    if (!entry.is_link() || size == 0) return -EINVAL;
    std::string whole;
    if (long error = TreeOf(entry).Target(entry.path, &whole); error < 0) return error;
    return static_cast<long>(whole.copy(target, size));
}

long View::MakeDirectory(const Start& start, const char* path, mode_t mode) {
    std::lock_guard<std::mutex> lock(mutex_);
    ResolvedPath entry;
    if (long error = Walk(start, path, kPlaceItself, &entry); error < 0) return error;
    if (entry.exists) return -EEXIST;
    return IsWritable(entry) ? layer_->MakeDirectory(entry.path, mode) : -EROFS;
}

// Finds what is to be removed or changed. Returns -EROFS if its mount is read-only.
long View::FindForChange(const Start& start, const char* path, Last last,
                         ResolvedPath* entry) const {
    if (long error = Walk(start, path, last, entry); error < 0) return error;
    if (!entry->exists) return -ENOENT;
    return IsWritable(*entry) ? 0 : -EROFS;
}

long View::Remove(const Start& start, const char* path, bool directory) {
    std::lock_guard<std::mutex> lock(mutex_);
    ResolvedPath entry;
    if (long error = FindForChange(start, path, kPlaceItself, &entry); error < 0) return error;
    const std::string_view name = LastName(path);
    if (directory && name == ".") return -EINVAL;
    if (directory && name == "..") return -ENOTEMPTY;
    if (directory && !entry.is_directory()) return -ENOTDIR;
    if (!directory && entry.is_directory()) return -EISDIR;
    if (entry.ends_in_slash && !entry.is_directory()) return -ENOTDIR;
    if (entry.path.empty() || IsMountPoint(entry)) return -EBUSY;
    return RemoveShown(entry, directory);
}

// Removes what was found; mounts that show it go on doing so.
long View::RemoveShown(const ResolvedPath& entry, bool directory) {
    const auto shows = [&entry](const Mount& mount) {
        return mount.tree == 0 && mount.root == entry.path;
    };
    if (std::none_of(mounts_.begin(), mounts_.end(), shows)) {
        return layer_->Remove(entry.path, directory);
    }
    std::string kept;
    if (long error = layer_->RemoveAndKeep(entry.path, directory, &kept); error < 0) return error;
    for (Mount& mount : mounts_) {
        // What is mounted on such a mount stays mounted there.
        if (shows(mounts_[mount.parent]) && mount.point == entry.path) mount.point = kept;
    }
    for (Mount& mount : mounts_) {
        if (shows(mount)) mount.root = kept;
    }
    return 0;
}

long View::ChangeOwner(const Start& start, const char* path, bool follow, uid_t user, gid_t group) {
    std::lock_guard<std::mutex> lock(mutex_);
    ResolvedPath entry;
    if (long error = FindForChange(start, path, follow ? kFollow : kLinkItself, &entry);
        error < 0) {
        return error;
    }
    return layer_->ChangeOwner(entry.path, user, group);
}

long View::ChangeMode(const Start& start, const char* path, mode_t mode) {
    std::lock_guard<std::mutex> lock(mutex_);
    ResolvedPath entry;
    if (long error = FindForChange(start, path, kFollow, &entry); error < 0) return error;
    return layer_->ChangeMode(entry.path, mode);
}

long View::Bind(const char* source, const char* target, bool recursive) {
    std::lock_guard<std::mutex> lock(mutex_);
    ResolvedPath from, to;
    if (long error = Walk({}, target, kFollow, &to); error < 0) return error;
    if (!to.exists) return -ENOENT;
    if (source == nullptr || source[0] == '\0') return -EINVAL;
    if (long error = Walk({}, source, kFollow, &from); error < 0) return error;
    if (!from.exists) return -ENOENT;
    if (from.is_directory() != to.is_directory()) return -ENOTDIR;
    EnterMounts(&to.mount, &to.path);  // paths do not enter a mount on the root by themselves

    // Copies the mounts below, too, each after its parent.
    std::vector<std::pair<int, int>> copies = {{from.mount, static_cast<int>(mounts_.size())}};
    const size_t old_count = mounts_.size();
    mounts_.push_back({to.mount, to.path, mounts_[from.mount].tree, from.path});
    for (size_t i = 0; recursive && i < copies.size(); ++i) {
        const auto [original, copy] = copies[i];
        for (size_t below = 1; below < old_count; ++below) {
            const Mount mount = mounts_[below];
            if (mount.parent != original || !IsBelow(mount.point, mounts_[copy].root)) continue;
            copies.emplace_back(below, mounts_.size());
            mounts_.push_back({copy, mount.point, mount.tree, mount.root});
        }
    }
    return 0;
}

std::pair<size_t, std::string> View::TreeAt(const std::string& path) const {
    ResolvedPath entry;
    if (trees_.size() == 1 || Find(path, false, &entry) < 0) return {0, ""};
    return {mounts_[entry.mount].tree, entry.path};
}

void View::Note(const char* list, const std::string& text) const {
    constexpr size_t kMost = 1 << 20;
    // A file, since this process, which may be a sandboxed one, ends before it is read.
    const std::string line = text + '\0';
    const long fd = Kernel(SYS_openat, AT_FDCWD, (notes_ + "/" + list).c_str(),
                           O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    const unique_fd file(fd < 0 ? -1 : static_cast<int>(fd));
    // Thousands of boots may note the same text; it is written once.
    std::string noted(1, '\0');
    char buffer[4096];
    long size = 0;
    while (file.ok() && (size = Kernel(SYS_read, fd, buffer, sizeof(buffer))) > 0) {
        noted.append(buffer, size);
    }
    if (noted.size() > kMost || noted.find('\0' + line) != std::string::npos) return;
    if (write(file.get(), line.data(), line.size()) == -1) return;
}

std::set<std::string> View::Noted(const char* list) const {
    std::string text;
    android::base::ReadFileToString(notes_ + "/" + list, &text);
    std::set<std::string> paths;
    for (const std::string& path : android::base::Split(text, std::string(1, '\0'))) {
        paths.insert(path);
    }
    paths.erase("");
    return paths;
}

// --- What is shown in place of the device's files -----------------------------------------------

long View::ShowTree(std::shared_ptr<const Tree> tree, const std::string& root,
                    const std::string& place) {
    ResolvedPath entry;
    for (size_t slash = 0; slash != std::string::npos;) {
        slash = place.find('/', slash + 1);
        const std::string part = place.substr(0, slash);
        long error = MakeDirectory({}, part.c_str(), 0755);
        if (error < 0 && error != -EEXIST) return error;
        // A link on the way may be dangling.
        if (Find(part, true, &entry) == 0 && !entry.exists) return -ENOENT;
    }
    if (long error = Find(place, true, &entry); error < 0) return error;
    if (!entry.is_directory()) return -ENOTDIR;
    trees_.push_back(std::move(tree));
    mounts_.push_back({entry.mount, entry.path, trees_.size() - 1, root});
    return 0;
}

long View::MakeLinks(const std::string& directory, const std::vector<std::string>& names) {
    std::lock_guard<std::mutex> lock(mutex_);
    return layer_->MakeLinks(directory, names);
}

long View::MakeBlockDevice(const std::string& path) {
    ResolvedPath entry;
    if (long error = Find(path, true, &entry); error < 0) return error;
    if (!entry.exists) return -ENOENT;
    if (!S_ISREG(entry.status.st_mode) || !IsWritable(entry)) return -ENOTBLK;
    return layer_->MakeBlockDevice(entry.path);
}

std::vector<FileChange> View::TakeChanges() {
    std::lock_guard<std::mutex> lock(mutex_);
    return layer_->TakeChanges();
}

}  // namespace sandbox
