// Where images lie: the device directory or an archive.

#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>

#include "image_files.h"
#include "images.h"
#include "tree.h"
#include "view.h"

namespace sandbox {

// A directory or archive in which images are opened for. Paths in it begin with a slash.
struct Folder {
    std::shared_ptr<const Tree> tree;
    std::function<ImageName(const std::string& path)> name_of;
    // Opens a file, or the parts of one, that stand for the image.
    std::function<OpenedFile(const std::string& image, const std::vector<std::string>& paths)> open;
};

// A file that stands for an image, or the parts of such a file.
struct ImageFile {
    ImageName name;
    std::vector<std::string> paths;  // in the folder; none if the user named it
    std::function<OpenedFile()> open;
};

// What lies in a directory of a folder.
struct FolderContent {
    std::map<std::string, ImageFile> images;  // by FileName::image
    std::vector<std::string> archives;        // their paths
};

// Makes folders, and trees of what is found in them.
class Folders {
  public:
    using OnDamage = std::function<void(const std::string& what)>;

    // `nothing` and `on_damage` are as in Firmware's constructor.
    Folders(char slot, int nothing, OnDamage on_damage)
            : slot_(slot), nothing_(nothing), on_damage_(std::move(on_damage)) {}

    // Sets the number of reader processes, which share the limits on reading. Throws
    // std::runtime_error if there are too many.
    void SetReaders(size_t readers);

    // Starts a process that reads the file, or the parts of one, and returns what it found.
    OpenedFile Start(std::vector<android::base::unique_fd> files) const;

    // Returns the device directory as a folder. Its files are looked up in `view`, which must
    // outlive the folder, as must this object.
    Folder OfDevice(const std::string& device, std::shared_ptr<const Tree> tree,
                    const View& view) const;

    // Returns what the archive holds. A single directory around everything is left out; for an
    // archive that only holds another archive this is the inner one's content. Throws
    // std::runtime_error.
    Folder OfArchive(const OpenedFile& opened, const ImageName& name) const;

    // Returns the image's files as a tree.
    std::shared_ptr<const Tree> TreeOf(const ImageName& name,
                                       std::unique_ptr<images::FileSystem> files) const;

    // Returns a tree for an image that cannot be opened: a look-up in it reports `what` as damage.
    std::shared_ptr<const Tree> DamagedTree(const ImageName& name, const std::string& what) const;

  private:
    char slot_;
    int nothing_;
    OnDamage on_damage_;
    size_t readers_ = 1;
};

bool IsDirectory(const Tree& tree, const std::string& path);

// Returns the names in the directory, sorted. Throws std::runtime_error.
std::set<std::string> NamesIn(const Tree& tree, const std::string& directory);

// Returns whether the archive holds anything that belongs to a device.
bool HasPartitions(const Tree& archive);

// Returns what lies in the folder's directory, and adds to `*notes` what the user should know of
// it. Throws std::runtime_error if parts of an image are missing.
FolderContent ContentOf(const Folder& folder, const std::string& directory,
                        std::vector<std::string>* notes);

// Returns the note that `unread` is not read because `chosen` stands for the same thing.
std::string Unread(const ImageName& unread, const ImageName& chosen, const std::string& of_what);

}  // namespace sandbox
