// What images lie in: the device directory or an archive.

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

// Paths in it begin with a slash.
struct Folder {
    std::shared_ptr<const Tree> tree;
    std::function<ImageName(const std::string& path)> name_of;
    // Looks at a file, or at the parts of one, that stand for the image.
    std::function<Looked(const std::string& image, const std::vector<std::string>& paths)> look;
};

// A file that stands for an image of some name, or the parts of one.
struct ImageFile {
    ImageName name;
    std::vector<std::string> paths;  // in the folder; none if the user named it
    std::function<Looked()> look;
};

// What lies in a directory of a folder.
struct FolderContent {
    std::map<std::string, ImageFile> images;  // by what ParseFileName() calls them
    std::vector<std::string> archives;        // their paths
};

// Makes folders, and trees of what is found in them.
class Folders {
  public:
    using OnDamage = std::function<void(const std::string& what)>;

    // `nothing` and `on_damage` are as Firmware has them.
    Folders(char slot, int nothing, OnDamage on_damage)
            : slot_(slot), nothing_(nothing), on_damage_(std::move(on_damage)) {}

    // Sets the number of processes that share what reading may take. Throws std::runtime_error if
    // there are too many.
    void SetReaders(size_t readers);

    // Starts a process that reads the file, or the parts of one.
    Looked Start(std::vector<android::base::unique_fd> files) const;

    // The device directory, whose files are seen as `view`; this must live as long.
    Folder OfDevice(const std::string& device, std::shared_ptr<const Tree> tree,
                    const View& view) const;

    // What the archive holds: without the directory that is around everything, and of an archive
    // that only holds another one what is in that. Throws std::runtime_error.
    Folder OfArchive(const Looked& looked, const ImageName& name) const;

    // The image's files.
    std::shared_ptr<const Tree> TreeOf(const ImageName& name,
                                       std::unique_ptr<images::FileSystem> files) const;

    // An image whose files cannot be had, which whoever looks for them is told.
    std::shared_ptr<const Tree> DamagedTree(const ImageName& name, const std::string& what) const;

  private:
    char slot_;
    int nothing_;
    OnDamage on_damage_;
    size_t readers_ = 1;
};

bool IsDirectory(const Tree& tree, const std::string& path);

// Returns the names in the directory, in their order. Throws std::runtime_error.
std::set<std::string> NamesIn(const Tree& tree, const std::string& directory);

// Whether anything in the archive is of a device.
bool HasPartitions(const Tree& archive);

// Returns what lies in the folder's directory, and adds what the user should know of it. Throws
// std::runtime_error if parts of an image are missing.
FolderContent ContentOf(const Folder& folder, const std::string& directory,
                        std::vector<std::string>* notes);

// Returns a note on what another stands for.
std::string Unread(const ImageName& unread, const ImageName& chosen, const std::string& of_what);

}  // namespace sandbox
