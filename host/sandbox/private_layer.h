// The copy-on-write layer: a tree that can be changed, over another tree, the original, that stays
// as it is. Owners and modes are emulated, since this machine's user must be able to reach what
// root on the device could, and cannot give files away. The layer lies in a directory of its own:
//
//   upper/       the changed part of the tree. It has a directory either with all names in it, so
//                that listing it takes no look at the original, or not at all; with a directory it
//                has those above. What is as in the original has a placeholder there: an empty file
//                or directory of its type, with the sticky bit. A link is its own placeholder.
//   owners/INODE the emulated mode and owner of a file in upper/, where the device has other ones:
//                a link whose target is "mode:user:group"
//   new-PID-N    a file or directory that is not finished
//   upper-new-PID-N  what was removed while a mount showed it
//
// The process that made the layer and all its descendants see each other's changes. In each of them
// one thread at a time may use it.

#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include <android-base/unique_fd.h>

#include "changes.h"
#include "tree.h"

namespace sandbox {

class PrivateLayer : public Tree {
  public:
    // `directory` exists and is empty; `original` must outlive the layer. Throws std::runtime_error
    // if the directory cannot be used.
    PrivateLayer(const Tree& original, const std::string& directory);
    ~PrivateLayer() override;
    PrivateLayer& operator=(PrivateLayer&&) = delete;

    long Status(const std::string& path, struct stat* status) const override;
    long Target(const std::string& path, std::string* target) const override;
    long List(const std::string& directory, std::vector<Listed>* names) const override;
    long Open(const std::string& path, int flags) const override;
    bool is_kernels() const override { return original_.is_kernels(); }

    // Changes. The directory of `path` exists. `path` itself does not for the first two, and does
    // for all later ones. Return a result as of the system call, or a negative errno: -EFBIG if the
    // original file is larger than limits::kPartitionFile, or copies exceed limits::kPrivateBytes.
    long Create(const std::string& path, int flags, mode_t mode);
    long MakeDirectory(const std::string& path, mode_t mode);
    long Remove(const std::string& path, bool directory);

    // Removes what is at `path`, a file or an empty directory, but keeps it for mounts that show
    // it: at the layer's path `*kept`, which does not begin with a slash. Nothing is below that.
    long RemoveAndKeep(const std::string& path, bool directory, std::string* kept);

    // Opens a removed directory, which is empty; all of them are alike.
    long OpenRemoved(int flags) const;
    long ChangeOwner(const std::string& path, uid_t user, gid_t group);  // -1: unchanged
    long ChangeMode(const std::string& path, mode_t mode);

    // Opens a regular file with flags of open(2) that may include writing and O_TRUNC, not O_CREAT.
    long OpenForChange(const std::string& path, int flags);

    // Puts into `*place` a path, relative to the descriptor `directory()`, at which the FIFO can be
    // opened. If `path` is null, that is a FIFO for one that is not in this layer.
    long FindFifo(const std::string* path, std::string* place);
    int directory() const { return directory_.get(); }

    // Returns how often directories and links have changed so far, in all processes.
    uint64_t changes() const;

    // Makes the regular file a block device for this process and those that it starts later: its
    // size is rounded down to a multiple of 512 bytes, and opening it for output does not truncate
    // it.
    long MakeBlockDevice(const std::string& path);

    // Makes links in the root to what has the same names in `directory`, which ends in a slash,
    // unless the root has these names already. They do not count as changed.
    long MakeLinks(const std::string& directory, const std::vector<std::string>& names);

    // Returns what has changed since the last call in this process, as Sandbox::TakeChanges().
    std::vector<FileChange> TakeChanges();

  private:
    struct Attributes {
        mode_t mode;
        uid_t user;
        gid_t group;
        bool operator==(const Attributes& other) const;
    };
    using States = std::map<std::string, std::optional<Attributes>>;  // by path; none: deleted
    enum class Copied { kContent, kNothing };

    bool HasDirectory(const std::string& path) const;
    bool IsOwn(const std::string& path, struct stat* status) const;
    void Changed() const;

    bool GetEmulatedOwner(struct stat* status) const;
    long SetEmulatedOwner(const std::string& place, const Attributes& attributes) const;
    long SetEmulatedMode(const std::string& place, mode_t mode) const;

    long MakePlaceholder(const std::string& original, const std::string& place,
                         unsigned char type) const;
    long Shadow(const std::string& directory);
    long TakeOver(const std::string& path, Copied copied);
    long CopyFile(const std::string& path, const struct stat& status, Copied copied);
    long CopyContent(const std::string& path, off_t size, int to);
    void MarkSeen(const std::string& place) const;

    std::optional<Attributes> Original(const std::string& path) const;
    void Collect(const std::string& directory, States* states,
                 std::set<std::string>* written) const;
    void CollectDeleted(const std::string& path, States* states) const;

    const Tree& original_;
    android::base::unique_fd directory_;
    struct Shared;
    Shared* shared_;
    // Cache: whether the layer has a directory; valid while changes() is cached_at_.
    mutable std::unordered_map<std::string, bool> has_directory_;
    mutable uint64_t cached_at_ = 0;
    std::set<std::string> block_devices_;
    uint64_t copied_ = 0;  // bytes, by this process and its ancestors
    States seen_;          // what differed from the original at the last TakeChanges()
};

}  // namespace sandbox
