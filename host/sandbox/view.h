// The device's files as mounts, each of which shows a tree or a directory of one, without a root in
// the kernel. Each call does and returns what the kernel would for root in a real root: a result,
// or a negative errno. Besides, what this machine's user cannot read gives -EACCES, damage in an
// image -EIO; what is in an image is read-only (-EROFS), and a file beyond the size limits is not
// opened (-EFBIG). Paths are the device's; none may be null unless stated otherwise.

#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "directory_tree.h"
#include "private_layer.h"

namespace sandbox {

// A file, directory or link of the device, or a place where there is none yet.
struct ResolvedPath {
    int mount = 0;     // the mount that it is in
    std::string path;  // in that mount's tree, without links; "" is the tree's root
    bool exists = false;
    bool ends_in_slash = false;  // the path requires a directory
    struct stat status = {};     // as the device shows it

    bool is_directory() const { return S_ISDIR(status.st_mode); }
    bool is_link() const { return S_ISLNK(status.st_mode); }
};

// A directory from which a relative path starts.
struct Start {
    int mount = 0;
    std::string path;
};

// Several threads may call its functions at once, except PathOf(), TreeAt(), ShowTree() and
// MakeBlockDevice().
class View {
  public:
    // Shows the device directory. Changes go to the directory `state` of this machine, which exists
    // and is empty; lists of what the user should know go to the directory `notes`, which exists.
    // Throws std::runtime_error if `state` cannot be used.
    View(std::shared_ptr<const Tree> device, std::string state, std::string notes);

    // The system calls. A relative path starts at `start`. Open() returns a descriptor, which the
    // caller closes, and puts what it found or created into `*opened`; it may wait for ever at a
    // FIFO, and gives -ENXIO for any other special file. Bind() fails with -EINVAL if `source` is
    // null or empty.
    long Open(const Start& start, const char* path, int flags, mode_t mode, ResolvedPath* opened);
    long Access(const Start& start, const char* path, int mode);
    long Status(const Start& start, const char* path, bool follow, struct stat* status);
    long ReadLink(const Start& start, const char* path, char* target, size_t size);
    long MakeDirectory(const Start& start, const char* path, mode_t mode);
    long Remove(const Start& start, const char* path, bool directory);
    long ChangeOwner(const Start& start, const char* path, bool follow, uid_t user, gid_t group);
    long ChangeMode(const Start& start, const char* path, mode_t mode);
    long Bind(const char* source, const char* target, bool recursive);

    // Finds what is at the absolute `path`, or where it would be made: if only its last name is
    // missing, that is no error, and `entry->exists` is false. `follow` follows a link at its end.
    long Find(std::string_view path, bool follow, ResolvedPath* entry) const;

    // Finds what has the name in a directory that was found, or where it would be made, as Find()
    // without `follow`.
    long FindIn(const ResolvedPath& directory, const std::string& name, ResolvedPath* entry) const;

    // Returns the device's path of what was found.
    std::string PathOf(const ResolvedPath& entry) const;

    // Returns whether Tree::is_kernels() of all that is shown.
    bool has_only_kernels() const;

    // Of an open file, by the place at which it was found.
    bool is_kernels(const Start& place) const;
    long StatusOf(const Start& place, struct stat* status) const;

    // Lists a directory for which is_kernels() is false, as getdents64(2) does. `*next`, at first
    // 0, is the number of the next name, with "." and ".." counted.
    long ReadDirectory(const Start& place, size_t* next, char* buffer, size_t size) const;

    // Adds the names in a directory that was found, except "." and "..".
    long List(const ResolvedPath& directory, std::vector<Listed>* names) const;

    // Puts the content of the regular file at `path` into `*content`. Returns 0; -ELOOP for a link,
    // -EISDIR for a directory, -EFBIG if it has more than `most` bytes.
    long Read(const std::string& path, size_t most, std::string* content) const;

    // Opens the regular file at `path` for reading, whatever its size. Returns the descriptor,
    // which the caller closes; -EISDIR for a directory, -ELOOP for a link if `follow` is false.
    long OpenToRead(const std::string& path, bool follow) const;

    // Shows the tree's directory `root`, read-only, at the absolute `place`, which is made if it is
    // missing. Returns 0; -ENOTDIR if there is anything but a directory. That `root` is one is not
    // checked.
    long ShowTree(std::shared_ptr<const Tree> tree, const std::string& root,
                  const std::string& place);

    // Returns where the absolute path leads, without following a link at its end: the number of the
    // tree, 0 for the device directory, N for the N-th ShowTree(), and the path in that tree. A
    // path that cannot be walked, and every path before the first ShowTree(), gives 0 and "".
    std::pair<size_t, std::string> TreeAt(const std::string& path) const;

    // The lists of what the user should know: paths that the user of this process cannot read
    // though root of the device could (a directory stands for all in it); paths of files beyond the
    // size limit; damage.
    static constexpr char kDenied[] = "denied";
    static constexpr char kTooLarge[] = "too-large";
    static constexpr char kDamaged[] = "damaged";

    // Adds to a list, unless it has the text already or more than 1 MiB. All views with the same
    // directory for notes share it. `text` has no zero byte. A failure is ignored.
    void Note(const char* list, const std::string& text) const;

    // Returns what is in the list; nothing if it cannot be read.
    std::set<std::string> Noted(const char* list) const;

    // Makes links in the device's root, as PrivateLayer does.
    long MakeLinks(const std::string& directory, const std::vector<std::string>& names);

    // Makes the file at the absolute `path` a block device, as PrivateLayer does. Returns 0;
    // -ENOTBLK if it is no regular file of the device directory.
    long MakeBlockDevice(const std::string& path);

    // Returns what has changed since the last call, as Sandbox::TakeChanges().
    std::vector<FileChange> TakeChanges();

  private:
    struct Mount {
        int parent;
        std::string point;  // in the parent's tree
        size_t tree;
        std::string root;  // the directory of the tree that is shown
    };

    // Where the directory of a path was found, and the number of links on the way.
    struct CachedDirectory {
        Start directory;
        int links;
    };

    // How a link or mount at the end of a path is treated.
    enum Last { kFollow, kLinkItself, kPlaceItself };

    const CachedDirectory* FindCached(const std::string& directory, std::string* key) const;
    long Walk(const Start& start, std::string_view path, Last last, ResolvedPath* entry) const;
    long Look(int mount, const std::string& path, ResolvedPath* entry) const;
    void EnterMounts(int* mount, std::string* path) const;
    bool IsMountPoint(const ResolvedPath& entry) const;
    bool IsWritable(const ResolvedPath& entry) const { return mounts_[entry.mount].tree == 0; }
    const Tree& TreeOf(const ResolvedPath& entry) const {
        return *trees_[mounts_[entry.mount].tree];
    }
    long RemoveShown(const ResolvedPath& entry, bool directory);
    long FindForChange(const Start& start, const char* path, Last last, ResolvedPath* entry) const;
    long OpenRegular(const ResolvedPath& entry, int flags);

    std::string notes_;
    std::shared_ptr<const Tree> device_;
    std::shared_ptr<PrivateLayer> layer_;             // over the device directory
    std::vector<std::shared_ptr<const Tree>> trees_;  // the first is the layer
    std::vector<Mount> mounts_;                       // the first is the root
    // Cache, by absolute paths; valid while the numbers of changes and mounts are directories_at_.
    mutable std::unordered_map<std::string, CachedDirectory> directories_;
    mutable std::pair<uint64_t, size_t> directories_at_;
    mutable std::mutex mutex_;
};

}  // namespace sandbox
