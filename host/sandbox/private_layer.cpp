#include "private_layer.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <new>

#include "../budget.h"
#include "../kernel.h"
#include "checks.h"
#include "directory_tree.h"

using android::base::unique_fd;

namespace sandbox {

namespace {

constexpr mode_t kPlaceholder = S_ISVTX;

constexpr mode_t kReachableFile = 0600;
constexpr mode_t kReachableDirectory = 0700;

constexpr mode_t kPermissions = 07777;
constexpr off_t kSectorSize = 512;

// The modification time that a file gets once TakeChanges() has seen it. No file is written at that
// time, so any other time shows a later change, however soon it came.
constexpr timespec kSeenTime = {1, 0};

std::string Upper(const std::string& path) {
    return "upper" + path;
}

std::string EmulatedOwnerPath(const struct stat& status) {
    return "owners/" + std::to_string(status.st_ino);
}

std::string NewName() {
    static std::atomic<unsigned> count{0};
    return "new-" + std::to_string(Kernel(SYS_getpid)) + "-" + std::to_string(++count);
}

mode_t Reachable(mode_t mode) {
    return (mode & kPermissions & ~kPlaceholder) |
           (S_ISDIR(mode) ? kReachableDirectory : kReachableFile);
}

}  // namespace

// Memory shared by all processes that have the layer.
struct PrivateLayer::Shared {
    std::atomic<uint64_t> changes;
    std::atomic<bool> has_emulated_owners;  // any owner or mode is emulated
};

bool PrivateLayer::Attributes::operator==(const Attributes& other) const {
    return mode == other.mode && user == other.user && group == other.group;
}

PrivateLayer::PrivateLayer(const Tree& original, const std::string& directory)
        : original_(original), directory_(OpenOrThrow(directory, O_PATH | O_DIRECTORY)) {
    for (const char* name : {"upper", "owners"}) {
        Check(mkdirat(directory_.get(), name, kReachableDirectory) == 0, directory);
    }
    Check(fchmodat(directory_.get(), "upper", kReachableDirectory | kPlaceholder, 0) == 0,
          directory);
    void* shared = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                        -1, 0);
    Check(shared != MAP_FAILED, "mmap");
    shared_ = new (shared) Shared();
}

PrivateLayer::~PrivateLayer() {
    munmap(shared_, sizeof(Shared));
}

// --- Reading ------------------------------------------------------------------------------------

// Returns whether the layer has the directory, and so the names of all that is in it.
bool PrivateLayer::HasDirectory(const std::string& path) const {
    if (const uint64_t now = changes(); now != cached_at_) {
        has_directory_.clear();
        cached_at_ = now;
    }
    if (const auto known = has_directory_.find(path); known != has_directory_.end())
        return known->second;
    // The layer has no directory below one that it does not have.
    const bool may_have = path[0] != '/' || HasDirectory(ParentOf(path));
    struct stat status;
    return has_directory_[path] = may_have &&
                                  StatusIn(directory_.get(), Upper(path).c_str(), &status) == 0 &&
                                  (status.st_mode & kPlaceholder) == 0;
}

uint64_t PrivateLayer::changes() const {
    return shared_->changes;
}

// Records that directories or links have changed: all processes drop what they have cached.
void PrivateLayer::Changed() const {
    ++shared_->changes;
}

// Returns whether the layer decides what is at `path`, rather than the original. Then `*status` is
// what the layer has there, with a mode of 0 if there is nothing.
bool PrivateLayer::IsOwn(const std::string& path, struct stat* status) const {
    if (path.empty() ? !HasDirectory(path) : !HasDirectory(ParentOf(path))) return false;
    if (StatusIn(directory_.get(), Upper(path).c_str(), status) != 0) {
        *status = {};
        return true;
    }
    const bool is_link = S_ISLNK(status->st_mode);
    if (!is_link && (status->st_mode & kPlaceholder) != 0) return false;
    if (GetEmulatedOwner(status) || !is_link) return true;
    std::string target, original_target;
    return TargetIn(directory_.get(), Upper(path).c_str(), &target) <= 0 ||
           original_.Target(path, &original_target) <= 0 || target != original_target;
}

long PrivateLayer::Status(const std::string& path, struct stat* status) const {
    if (!IsOwn(path, status)) return original_.Status(path, status);
    return status->st_mode == 0 ? -ENOENT : 0;
}

long PrivateLayer::Target(const std::string& path, std::string* target) const {
    if (!HasDirectory(ParentOf(path))) return original_.Target(path, target);
    return TargetIn(directory_.get(), Upper(path).c_str(), target);
}

long PrivateLayer::List(const std::string& directory, std::vector<Listed>* names) const {
    if (!HasDirectory(directory)) return original_.List(directory, names);
    return NamesIn(directory_.get(), Upper(directory).c_str(), names);
}

long PrivateLayer::Open(const std::string& path, int flags) const {
    struct stat status;
    if (!IsOwn(path, &status)) return original_.Open(path, flags);
    if (status.st_mode == 0) return -ENOENT;
    if (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode)) return -ENXIO;
    return Kernel(SYS_openat, directory_.get(), Upper(path).c_str(), flags | O_NOFOLLOW, 0);
}

// --- Emulated owners and modes -----------------------------------------------------------

// Puts the emulated owner and mode of a file in the layer into `*status`. Returns false if it has
// none.
bool PrivateLayer::GetEmulatedOwner(struct stat* status) const {
    std::string text;
    unsigned mode, user, group;
    const bool known = shared_->has_emulated_owners &&
                       TargetIn(directory_.get(), EmulatedOwnerPath(*status).c_str(), &text) > 0 &&
                       sscanf(text.c_str(), "%o:%u:%u", &mode, &user, &group) == 3;
    if (!known) {
        status->st_uid = status->st_gid = 0;  // root of the device made it
        return false;
    }
    status->st_mode = (status->st_mode & S_IFMT) | mode;
    status->st_uid = user;
    status->st_gid = group;
    return true;
}

long PrivateLayer::SetEmulatedOwner(const std::string& place, const Attributes& attributes) const {
    struct stat status;
    if (long error = StatusIn(directory_.get(), place.c_str(), &status); error < 0) return error;
    const std::string path = EmulatedOwnerPath(status);
    Kernel(SYS_unlinkat, directory_.get(), path.c_str(), 0);
    const mode_t mode = attributes.mode & kPermissions;
    // A link without an emulated owner would show the original's, so it always gets one.
    if (!S_ISLNK(status.st_mode) && attributes.user == 0 && attributes.group == 0 &&
        mode == (status.st_mode & kPermissions)) {
        return 0;
    }
    char text[64];
    snprintf(text, sizeof(text), "%o:%u:%u", mode, attributes.user, attributes.group);
    shared_->has_emulated_owners = true;
    return Kernel(SYS_symlinkat, text, directory_.get(), path.c_str());
}

// Emulates the mode that a new file was given, less the process's umask.
long PrivateLayer::SetEmulatedMode(const std::string& place, mode_t mode) const {
    struct stat status;
    if (long error = StatusIn(directory_.get(), place.c_str(), &status); error < 0) return error;
    return SetEmulatedOwner(place, {mode & status.st_mode, 0, 0});
}

// --- Changing -----------------------------------------------------------------------------------

// Makes a placeholder of the given type for a file of the original.
long PrivateLayer::MakePlaceholder(const std::string& original, const std::string& place,
                                   unsigned char type) const {
    const int at = directory_.get();
    if (type == DT_UNKNOWN) {
        struct stat status;
        if (long error = original_.Status(original, &status); error < 0) return error;
        type = IFTODT(status.st_mode);
    }
    if (type == DT_LNK) {
        std::string target;
        if (long error = original_.Target(original, &target); error < 0) return error;
        return Kernel(SYS_symlinkat, target.c_str(), at, place.c_str());
    }
    if (type == DT_DIR) {
        return Kernel(SYS_mkdirat, at, place.c_str(), kReachableDirectory | kPlaceholder);
    }
    // Only root can make a device node, and placeholders are never opened.
    const mode_t node = type == DT_FIFO || type == DT_SOCK ? DTTOIF(type) : S_IFREG;
    return Kernel(SYS_mknodat, at, place.c_str(), node | kReachableFile | kPlaceholder, 0);
}

// Gives the layer the directory, which exists, with placeholders for all that is in it.
long PrivateLayer::Shadow(const std::string& directory) {
    if (HasDirectory(directory)) return 0;
    if (!directory.empty()) {
        if (long error = Shadow(ParentOf(directory)); error < 0) return error;
    }
    struct stat status;
    if (long error = original_.Status(directory, &status); error < 0) return error;
    std::vector<Listed> names;
    if (long error = original_.List(directory, &names); error < 0) return error;
    const int at = directory_.get();
    const std::string unfinished = NewName();
    if (long error = Kernel(SYS_mkdirat, at, unfinished.c_str(), kReachableDirectory); error < 0) {
        return error;
    }
    for (const auto& [name, type] : names) {
        if (long error = MakePlaceholder(directory + "/" + name, unfinished + "/" + name, type);
            error < 0) {
            return error;
        }
    }
    Kernel(SYS_fchmodat, at, unfinished.c_str(), Reachable(status.st_mode));
    SetEmulatedOwner(unfinished, {status.st_mode, status.st_uid, status.st_gid});
    const long done =
            Kernel(SYS_renameat2, at, unfinished.c_str(), at, Upper(directory).c_str(), 0);
    Changed();
    return done;
}

void PrivateLayer::MarkSeen(const std::string& place) const {
    const timespec times[] = {{0, UTIME_OMIT}, kSeenTime};
    Kernel(SYS_utimensat, directory_.get(), place.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

// Copies the file's data; holes stay holes.
long PrivateLayer::CopyContent(const std::string& path, off_t size, int to) {
    const long fd = original_.Open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return fd;
    const unique_fd in(static_cast<int>(fd));
    for (off_t at = 0; at < size;) {
        const long data = Kernel(SYS_lseek, fd, at, SEEK_DATA);
        if (data == -ENXIO) break;  // no data follows
        const long hole = data < 0 ? data : Kernel(SYS_lseek, fd, data, SEEK_HOLE);
        if (hole < 0) return hole;
        copied_ += hole - data;
        if (copied_ > limits::kPrivateBytes) return -EFBIG;
        at = data;
        if (long error = Kernel(SYS_lseek, to, at, SEEK_SET); error < 0) return error;
        while (at < hole) {
            const long copied = Kernel(SYS_sendfile, to, fd, &at, hole - at);
            if (copied < 0) return copied;
            if (copied == 0) break;  // the file was truncated meanwhile
        }
        at = hole;
    }
    return Kernel(SYS_ftruncate, to, size);
}

long PrivateLayer::CopyFile(const std::string& path, const struct stat& status, Copied copied) {
    const int at = directory_.get();
    const std::string unfinished = NewName();
    if (S_ISREG(status.st_mode)) {
        const long fd = Kernel(SYS_openat, at, unfinished.c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kReachableFile);
        if (fd < 0) return fd;
        const unique_fd copy(static_cast<int>(fd));
        if (copied == Copied::kContent) {
            const long error = status.st_size > static_cast<off_t>(limits::kPartitionFile)
                                       ? -EFBIG
                                       : CopyContent(path, status.st_size, copy.get());
            if (error < 0) {
                Kernel(SYS_unlinkat, at, unfinished.c_str(), 0);
                return error;
            }
        }
    } else if (long error = Kernel(SYS_mknodat, at, unfinished.c_str(),
                                   (status.st_mode & S_IFMT) | kReachableFile, 0);
               error < 0) {
        return error;
    }
    Kernel(SYS_fchmodat, at, unfinished.c_str(), Reachable(status.st_mode));
    SetEmulatedOwner(unfinished, {status.st_mode, status.st_uid, status.st_gid});
    if (copied == Copied::kContent) MarkSeen(unfinished);
    return Kernel(SYS_renameat2, at, unfinished.c_str(), at, Upper(path).c_str(), 0);
}

// Copies what is at `path` into the layer, if that is not done, so that it can be changed.
long PrivateLayer::TakeOver(const std::string& path, Copied copied) {
    struct stat status;
    if (IsOwn(path, &status)) return status.st_mode == 0 ? -ENOENT : 0;
    if (long error = original_.Status(path, &status); error < 0) return error;
    if (S_ISDIR(status.st_mode)) return Shadow(path);
    if (long error = Shadow(ParentOf(path)); error < 0) return error;
    return S_ISLNK(status.st_mode) ? 0 : CopyFile(path, status, copied);
}

long PrivateLayer::Create(const std::string& path, int flags, mode_t mode) {
    if (long error = Shadow(ParentOf(path)); error < 0) return error;
    const std::string upper = Upper(path);
    const long fd = Kernel(SYS_openat, directory_.get(), upper.c_str(), flags | O_NOFOLLOW,
                           Reachable(S_IFREG | mode));
    if (fd >= 0) SetEmulatedMode(upper, mode);
    return fd;
}

long PrivateLayer::MakeDirectory(const std::string& path, mode_t mode) {
    if (long error = Shadow(ParentOf(path)); error < 0) return error;
    const std::string upper = Upper(path);
    const long made = Kernel(SYS_mkdirat, directory_.get(), upper.c_str(),
                             Reachable(S_IFDIR | (mode & 01777)));
    if (made == 0) SetEmulatedMode(upper, mode);
    Changed();
    return made;
}

long PrivateLayer::MakeLinks(const std::string& directory, const std::vector<std::string>& names) {
    if (names.empty()) return 0;
    if (long error = Shadow(""); error < 0) return error;
    Changed();
    for (const std::string& name : names) {
        const std::string path = "/" + name;
        const long made = Kernel(SYS_symlinkat, (directory + name).c_str(), directory_.get(),
                                 Upper(path).c_str());
        if (made == 0) seen_[path] = Attributes{S_IFLNK | 0777, 0, 0};
        if (made < 0 && made != -EEXIST) return made;
    }
    return 0;
}

long PrivateLayer::Remove(const std::string& path, bool directory) {
    // A directory must be in the layer with all names, to see whether it is empty.
    if (long error = Shadow(directory ? path : ParentOf(path)); error < 0) return error;
    const std::string upper = Upper(path);
    struct stat status = {};
    StatusIn(directory_.get(), upper.c_str(), &status);
    const long error =
            Kernel(SYS_unlinkat, directory_.get(), upper.c_str(), directory ? AT_REMOVEDIR : 0);
    if (error == 0) Kernel(SYS_unlinkat, directory_.get(), EmulatedOwnerPath(status).c_str(), 0);
    Changed();
    return error;
}

long PrivateLayer::RemoveAndKeep(const std::string& path, bool directory, std::string* kept) {
    struct stat status;
    if (long error = Status(path, &status); error < 0) return error;
    *kept = "-" + NewName();
    const std::string place = Upper(*kept);
    const int at = directory_.get();
    if (!directory) {
        if (long error = TakeOver(path, Copied::kContent); error < 0) return error;
        const long error =
                Kernel(SYS_renameat2, at, Upper(path).c_str(), at, place.c_str(), RENAME_NOREPLACE);
        Changed();
        return error;
    }
    if (long error = Remove(path, true); error < 0) return error;
    if (long error = Kernel(SYS_mkdirat, at, place.c_str(), Reachable(status.st_mode)); error < 0) {
        return error;
    }
    return SetEmulatedOwner(place, {status.st_mode, status.st_uid, status.st_gid});
}

long PrivateLayer::OpenRemoved(int flags) const {
    const std::string place = NewName();
    const int at = directory_.get();
    if (long error = Kernel(SYS_mkdirat, at, place.c_str(), kReachableDirectory); error < 0) {
        return error;
    }
    const long fd = Kernel(SYS_openat, at, place.c_str(), flags, 0);
    Kernel(SYS_unlinkat, at, place.c_str(), AT_REMOVEDIR);
    return fd;
}

long PrivateLayer::ChangeOwner(const std::string& path, uid_t user, gid_t group) {
    struct stat status;
    if (long error = Status(path, &status); error < 0) return error;
    if (long error = TakeOver(path, Copied::kContent); error < 0) return error;
    if (user == static_cast<uid_t>(-1)) user = status.st_uid;
    if (group == static_cast<gid_t>(-1)) group = status.st_gid;
    return SetEmulatedOwner(Upper(path), {status.st_mode, user, group});
}

long PrivateLayer::ChangeMode(const std::string& path, mode_t mode) {
    struct stat status;
    if (long error = Status(path, &status); error < 0) return error;
    if (long error = TakeOver(path, Copied::kContent); error < 0) return error;
    const mode_t reachable = Reachable((status.st_mode & S_IFMT) | (mode & kPermissions));
    const std::string upper = Upper(path);
    if (long error = Kernel(SYS_fchmodat, directory_.get(), upper.c_str(), reachable); error < 0) {
        return error;
    }
    return SetEmulatedOwner(upper, {mode, status.st_uid, status.st_gid});
}

long PrivateLayer::OpenForChange(const std::string& path, int flags) {
    if (block_devices_.count(path) != 0) flags &= ~O_TRUNC;
    const Copied copied = (flags & O_TRUNC) != 0 ? Copied::kNothing : Copied::kContent;
    if (long error = TakeOver(path, copied); error < 0) return error;
    return Kernel(SYS_openat, directory_.get(), Upper(path).c_str(), flags | O_NOFOLLOW, 0);
}

long PrivateLayer::FindFifo(const std::string* path, std::string* place) {
    *place = path != nullptr ? Upper(*path) : NewName();
    if (path != nullptr) return TakeOver(*path, Copied::kContent);
    return Kernel(SYS_mknodat, directory_.get(), place->c_str(), S_IFIFO | kReachableFile, 0);
}

long PrivateLayer::MakeBlockDevice(const std::string& path) {
    const long fd = OpenForChange(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0) return fd;
    const unique_fd file(static_cast<int>(fd));
    struct stat status;
    if (long error = StatusIn(file.get(), "", &status); error < 0) return error;
    const off_t whole = status.st_size - status.st_size % kSectorSize;
    if (long error = Kernel(SYS_ftruncate, fd, whole); error < 0) return error;
    MarkSeen(Upper(path));
    block_devices_.insert(path);
    return 0;
}

// --- What has changed ---------------------------------------------------------------------------

std::optional<PrivateLayer::Attributes> PrivateLayer::Original(const std::string& path) const {
    struct stat status;
    if (original_.Status(path, &status) != 0) return std::nullopt;
    return Attributes{status.st_mode, status.st_uid, status.st_gid};
}

void PrivateLayer::CollectDeleted(const std::string& path, States* states) const {
    const std::optional<Attributes> state = Original(path);
    (*states)[path] = std::nullopt;
    std::vector<Listed> names;
    if (!state || !S_ISDIR(state->mode) || original_.List(path, &names) < 0) return;
    for (const auto& entry : names) CollectDeleted(path + "/" + entry.name, states);
}

// Adds to `*states` what may differ from the original in the directory, which the layer has, and in
// those below it; and to `*written` the files that were written.
void PrivateLayer::Collect(const std::string& directory, States* states,
                           std::set<std::string>* written) const {
    std::vector<Listed> names, original_names;
    List(directory, &names);
    original_.List(directory, &original_names);
    std::set<std::string> missing;
    for (const auto& entry : original_names) missing.insert(entry.name);
    for (const auto& [name, type] : names) {
        missing.erase(name);
        const std::string path = directory + "/" + name;
        struct stat status;
        if (!IsOwn(path, &status) || status.st_mode == 0) continue;
        (*states)[path] = Attributes{status.st_mode, status.st_uid, status.st_gid};
        if (S_ISDIR(status.st_mode)) {
            Collect(path, states, written);
        } else if (!S_ISLNK(status.st_mode) && (status.st_mtim.tv_sec != kSeenTime.tv_sec ||
                                                status.st_mtim.tv_nsec != kSeenTime.tv_nsec)) {
            written->insert(path);
        }
    }
    for (const std::string& name : missing) CollectDeleted(directory + "/" + name, states);
}

std::vector<FileChange> PrivateLayer::TakeChanges() {
    States now;
    std::set<std::string> written;
    if (HasDirectory("")) Collect("", &now, &written);

    const auto state_in = [this](const States& states, const std::string& path) {
        auto known = states.find(path);
        return known != states.end() ? known->second : Original(path);
    };
    States all = now;
    all.insert(seen_.begin(), seen_.end());
    std::vector<FileChange> changes;
    for (const auto& [path, state] : all) {
        const std::optional<Attributes> before = state_in(seen_, path), after = state_in(now, path);
        if (!before && !after) continue;
        if (!before) {
            changes.push_back({FileChange::kCreated, path});
        } else if (!after) {
            changes.push_back({FileChange::kDeleted, path});
        } else if (!(*before == *after) || written.count(path) != 0) {
            changes.push_back({FileChange::kChanged, path});
        }
    }
    for (const std::string& path : written) MarkSeen(Upper(path));
    seen_ = std::move(now);
    return changes;
}

const char* Name(FileChange::Kind kind) {
    constexpr const char* kNames[] = {"created", "changed", "deleted"};
    return kNames[kind];
}

}  // namespace sandbox
