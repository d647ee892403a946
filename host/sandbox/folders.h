// Where images lie: the device directory or an archive.

#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <android-base/unique_fd.h>

#include "image_files.h"
#include "images.h"
#include "tree.h"
#include "view.h"

namespace sandbox {

// A directory or archive in which images are looked for. Paths in it begin with a slash.
struct Folder {
    std::shared_ptr<const Tree> tree;
    std::function<ImageName(const std::string& path)> name_of;
    // Opens a file, or the parts of one, that stand for the image; "" for an archive. Throws
    // std::runtime_error without the name of the file.
    std::function<OpenedFile(const std::string& image, const std::vector<std::string>& paths)> open;
};

// A file that stands for an image, or the parts of such a file.
struct ImageFile {
    ImageName name;
    std::vector<std::string> paths;    // in the folder; none if the user named it
    std::function<OpenedFile()> open;  // throws as Folder::open does
};

// What lies in a directory of a folder.
struct FolderContent {
    std::map<std::string, ImageFile> images;  // by FileName::image
    std::vector<std::string> archives;        // their paths
};

// Makes folders, and trees of what is found in them. The trees do not need this object.
class Folders {
  public:
    using OnDamage = std::function<void(const std::string& what)>;

    // `slot` is 'a' or 'b'; `nothing` and `on_damage` are as in Firmware's constructor.
    Folders(char slot, int nothing, OnDamage on_damage)
            : slot_(slot), nothing_(nothing), on_damage_(std::move(on_damage)) {}

    // Sets the number of reader processes that Start() will start, which share the limits on
    // reading; 0 counts as 1. Throws std::runtime_error if it exceeds limits::kReaders.
    void SetReaders(size_t readers);

    // Starts a process that reads the file, or the parts of one, and returns what it found. Throws
    // as Reader's constructor does.
    OpenedFile Start(std::vector<android::base::unique_fd> files) const;

    // Returns the device directory as a folder. Its files are looked up in `view`, which must
    // outlive the folder, as must this object.
    Folder OfDevice(const std::string& device, std::shared_ptr<const Tree> tree,
                    const View& view) const;

    // Returns what the archive holds; `opened` must be one. A single directory around everything is
    // left out; for an archive that only holds another archive this is the inner one's content.
    // Throws std::runtime_error, without `name`, if the archive is damaged or holds nothing but
    // several archives.
    Folder OfArchive(const OpenedFile& opened, const ImageName& name) const;

    // Returns the image's files as a tree.
    std::shared_ptr<const Tree> TreeOf(const ImageName& name,
                                       std::unique_ptr<images::FileSystem> files) const;

    // Returns a tree for an image that cannot be opened: each look-up in it reports `what` as
    // damage and fails with -EIO.
    std::shared_ptr<const Tree> DamagedTree(const ImageName& name, const std::string& what) const;

  private:
    char slot_;
    int nothing_;
    OnDamage on_damage_;
    size_t readers_ = 1;
};

// Returns whether there is a directory at the path; false also for a link and after an error.
bool IsDirectory(const Tree& tree, const std::string& path);

// Returns the names in the directory. Throws std::runtime_error, without the directory's path, if
// they cannot be listed.
std::set<std::string> NamesIn(const Tree& tree, const std::string& directory);

// Returns whether the archive's root holds an image or directory of a device. Throws as NamesIn.
bool HasPartitions(const Tree& archive);

// Returns what lies in the folder's directory, "" for its root, without opening it, and adds to
// `*notes` what the user should know of it. Throws std::runtime_error if the directory cannot be
// listed, or parts of an image are missing or there twice.
FolderContent ContentOf(const Folder& folder, const std::string& directory,
                        std::vector<std::string>* notes);

// Returns the note that `unread` is not read because `chosen` stands for the same `of_what`, such
// as "partition".
std::string Unread(const ImageName& unread, const ImageName& chosen, const std::string& of_what);

}  // namespace sandbox
