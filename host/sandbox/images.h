// The partition images of a device, such as odm.img, which stand for the files in them, and what
// they come packed in.

#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tree.h"
#include "view.h"

namespace sandbox {

struct Options;

// Where something lies that is no directory of this machine.
struct ImageName {
    std::string path;  // the file's; what lies in it follows, as in "fw/ota.zip(payload.bin)(odm)"
    std::string name;  // the same for people, as in "odm of payload.bin in ota.zip"
};

// The files of an image, and where the device has them.
struct ShownImage {
    ImageName name;
    std::shared_ptr<const Tree> tree;
    std::string root;   // the part of the tree that is shown, such as "" or "/system"
    std::string named;  // what the name has of the tree's paths already, such as "/ODM"
    std::string place;  // such as "/mnt/vendor/my_region"
    std::string link;   // where a link leads there too; empty for none
    // If set, returns the path of the tree's root in the image.
    std::function<std::string()> above;
};

// What a device holds of images.
struct Images {
    std::vector<ShownImage> shown;     // in the order of their partitions' names
    std::vector<std::string> files;    // that stand for them, by their paths in the device
    std::vector<std::string> covered;  // directories of the device that do
    std::vector<std::string> packed;   // places that are unpacked when somebody looks into them
    std::vector<std::string> notes;    // what the user should know of the files
};

// A device as it comes: a directory, an archive of one, or a file of one or more partitions.
class Firmware {
  public:
    // Opens the directory or file at `path`. `nothing` is a descriptor of the empty directory
    // `nothing_path`; it and `on_damage`, which is told what is found damaged later, live as long
    // as the trees. Throws std::runtime_error naming what cannot be used.
    Firmware(const std::string& path, const Options& options, int nothing,
             const std::string& nothing_path,
             const std::function<void(const std::string& what)>& on_damage);
    ~Firmware();
    Firmware& operator=(Firmware&&) = delete;

    // Its files but those in images.
    std::shared_ptr<const Tree> tree() const;

    // Opens its images, and those that the options put there. `view` is what its files are seen as.
    // Throws as above.
    Images OpenImages(const View& view) const;

  private:
    class Opener;
    std::unique_ptr<Opener> opener_;
};

}  // namespace sandbox
