// A tree that can be changed, over another one that stays as it is: copy-on-write, and with owners
// and modes that only the device knows of. It lies in a directory of its own:
//
//   upper/       the changed part of the tree. A directory is there either whole or not at all, so
//                that listing one is reading one; those above it are there too. What such a
//                directory has not changed itself has a placeholder of its type there: an empty
//                one, with the sticky bit. A link is its own placeholder.
//   played/INODE "mode:user:group" as a link's target, of what is in upper/ with other ones in the
//                device. This machine's user has to reach what root on the device could, and cannot
//                give files away.
//   new-PID-N    what is not finished
//   upper-new-PID-N  what was removed while a mount showed it
//
// Changes that one process makes are seen by all that have come from the one that made the layer.

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
    // `directory` is there and empty, `original` lives as long. Throws std::runtime_error if it
    // cannot be used.
    PrivateLayer(const Tree& original, const std::string& directory);
    ~PrivateLayer() override;
    PrivateLayer& operator=(PrivateLayer&&) = delete;

    long Status(const std::string& path, struct stat* status) const override;
    long Target(const std::string& path, std::string* target) const override;
    long List(const std::string& directory, std::vector<Listed>* names) const override;
    long Open(const std::string& path, int flags) const override;
    bool is_kernels() const override { return original_.is_kernels(); }

    // Changes, all in directories that are there. `path` is missing or, for the later ones, there.
    long Create(const std::string& path, int flags, mode_t mode);
    long MakeDirectory(const std::string& path, mode_t mode);
    long MakeLink(const std::string& path, const std::string& target);
    long Remove(const std::string& path, bool directory);

    // Removes it likewise, and keeps what it was for those who see it in another way. Puts in by
    // which path the layer has it then, which begins with no slash; nothing is below that.
    long RemoveAndKeep(const std::string& path, bool directory, std::string* kept);

    // Opens a directory that is removed, as any other of these.
    long OpenRemoved(int flags) const;
    long ChangeOwner(const std::string& path, uid_t user, gid_t group);  // -1: as it is
    long ChangeMode(const std::string& path, mode_t mode);

    // Opens a regular file for writing as well.
    long OpenForChange(const std::string& path, int flags);

    // Puts in a path, from the descriptor `directory()`, at which the FIFO can be opened, or one
    // that is elsewhere if `path` is null.
    long FindFifo(const std::string* path, std::string* place);
    int directory() const { return directory_.get(); }

    // How often the directories and links have changed so far, by whatever process.
    uint64_t changes() const;

    // Makes the regular file a block device: it loses what is left over of 512 bytes, and keeps its
    // size when it is opened for output.
    long MakeBlockDevice(const std::string& path);

    // Returns what has changed since the last time.
    std::vector<FileChange> TakeChanges();

  private:
    struct Attributes {
        mode_t mode;
        uid_t user;
        gid_t group;
        bool operator==(const Attributes& other) const;
    };
    using States = std::map<std::string, std::optional<Attributes>>;  // none: deleted
    enum class Copied { kContent, kNothing };

    bool HasDirectory(const std::string& path) const;
    bool IsOwn(const std::string& path, struct stat* status) const;
    void Changed() const;

    bool GetPlayed(struct stat* status) const;
    long SetPlayed(const std::string& place, const Attributes& attributes) const;
    long SetPlayedMode(const std::string& place, mode_t mode) const;

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
    // Which directories are there whole, as long as there are so many changes.
    mutable std::unordered_map<std::string, bool> known_;
    mutable uint64_t known_at_ = 0;
    std::set<std::string> block_devices_;
    uint64_t copied_ = 0;  // bytes, by this process and those it comes from
    States seen_;          // what was different from the original when it was last asked
};

}  // namespace sandbox
