// The device's files without a root of their own: what is read comes from the device directory,
// what is changed goes to a private folder beside it, and mounts are remembered. Each call does
// what the kernel would do for root in a real root, and returns what the kernel would return: a
// result, or a negative errno.

#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "changes.h"

namespace sandbox {

// A file, directory or link of the device, or the place where one would be.
struct Entry {
    int mount = 0;     // the mount that it is in
    std::string path;  // in that mount's tree, without links; "" is the tree's root
    bool exists = false;
    bool ends_in_slash = false;  // the path asked for a directory
    bool is_private = false;     // the private folder has it, the device directory is covered
    std::string real;            // where it is on this machine
    struct stat status = {};     // as the device has it

    bool is_directory() const { return S_ISDIR(status.st_mode); }
    bool is_link() const { return S_ISLNK(status.st_mode); }
};

// A directory from which a relative path starts.
struct Start {
    int mount = 0;
    std::string path;
};

class View {
  public:
    // Changes go to the directory `state`, which is there and empty.
    View(std::string device, std::string state);

    long Open(const Start& start, const char* path, int flags, mode_t mode, Entry* opened);
    long Access(const Start& start, const char* path, int mode);
    long Status(const Start& start, const char* path, bool follow, struct stat* status);
    long ReadLink(const Start& start, const char* path, char* target, size_t size);
    long MakeDirectory(const Start& start, const char* path, mode_t mode);
    long Remove(const Start& start, const char* path, bool directory);
    long ChangeOwner(const Start& start, const char* path, bool follow, uid_t user, gid_t group);
    long ChangeMode(const Start& start, const char* path, mode_t mode);
    long Bind(const char* source, const char* target, bool recursive);

    // Finds what is at the absolute `path`, or where it would be made.
    long Find(std::string_view path, bool follow, Entry* entry) const;

    // Returns the device's path of what was found.
    std::string PathOf(const Entry& entry) const;

    // Returns the names in the directory.
    long List(const Entry& directory, std::vector<std::string>* names) const;

    // Shows the directory `content` of this machine, read-only, at the device's `place`, which is
    // made where it is missing. Its directories in `left_out` are not all there: who looks for
    // something in them is noted.
    long ShowTree(const std::string& content, const std::string& place,
                  std::vector<std::string> left_out);

    // Returns the trees' number that the device's path leads into, 0 for the device directory, and
    // the path there, links on the way followed.
    std::pair<size_t, std::string> TreeAt(const std::string& path) const;

    // The lists of what the user should know of: looked for where not all is there, and unreadable
    // for the user that this runs as, though not for the device's root.
    static constexpr char kLeftOut[] = "left-out";
    static constexpr char kDenied[] = "denied";

    // Returns the paths in the list.
    std::vector<std::string> Noted(const char* list) const;

    // Makes a link of the device, unless there is something already.
    long MakeLink(const std::string& target, const std::string& path);

    // Makes the file a block device, which keeps its size when it is opened for output.
    long MakeBlockDevice(const std::string& path);

    // Returns what has changed since the last time.
    std::vector<FileChange> TakeChanges();

  private:
    struct Tree {
        std::string directory;
        std::vector<std::string> left_out;
    };
    struct Mount {
        int parent;
        std::string point;  // in the parent's tree
        size_t tree;
        std::string root;  // the part of the tree that is shown
    };
    // What the device knows of a file that this machine need not know.
    struct Played {
        mode_t mode;
        uid_t user;
        gid_t group;
        bool operator==(const Played& other) const;
    };
    struct Directory {
        int mount;
        std::string path;
        bool is_private;
    };
    using States = std::map<std::string, std::optional<Played>>;  // none: deleted

    // What becomes of a link or a mount that a path ends in.
    enum Last { kFollow, kLinkItself, kPlaceItself };

    long Walk(const Start& start, std::string_view path, Last last, Entry* entry) const;
    void LookBelow(const Directory& parent, const std::string& path, Entry* entry) const;
    void LookAt(int mount, const std::string& path, Entry* entry) const;
    void EnterMounts(int* mount, std::string* path) const;
    Directory DirectoryAt(int mount, const std::string& path) const;
    bool IsMountPoint(const Entry& entry) const;
    bool IsWritable(const Entry& entry) const { return mounts_[entry.mount].tree == 0; }

    std::string Upper(const std::string& path) const { return state_ + "/upper" + path; }
    std::string PlayedPath(const struct stat& status) const;
    std::string NewName() const;
    bool GetPlayed(struct stat* status) const;
    long SetPlayed(const std::string& real, const Played& played) const;
    void SetPlayedMode(const std::string& real, mode_t mode) const;
    void Note(const char* list, const Entry& entry) const;
    void NoteLeftOut(const Entry& entry) const;
    long Shadow(const std::string& directory) const;
    long ShadowParent(const std::string& path) const;
    long TakeOver(Entry* entry) const;
    long CopyFile(Entry* entry) const;
    long FindForChange(const Start& start, const char* path, Last last, Entry* entry) const;

    std::optional<Played> StateInDevice(const std::string& path) const;
    void Collect(const std::string& directory, States* states,
                 std::map<std::string, std::string>* written) const;
    void CollectDeleted(const std::string& path, States* states) const;

    std::string device_;
    std::string state_;
    std::vector<Tree> trees_;    // the first is the device's
    std::vector<Mount> mounts_;  // the first is the root
    std::vector<std::string> block_devices_;
    States seen_;  // what was different from the device directory when it was last asked
    mutable std::mutex mutex_;
};

}  // namespace sandbox
