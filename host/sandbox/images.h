// The partition images of a device, such as odm.img, which are shown as the files in them, and the
// archives and images that hold them.

#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tree.h"
#include "view.h"

namespace sandbox {

struct Options;

// The place of an image, archive or anything in one.
struct ImageName {
    std::string path;  // the file's, then what in it, as in "fw/ota.zip(payload.bin)(odm)"
    std::string name;  // the same for people, as in "odm of payload.bin in ota.zip"
};

// The files of an image, and where the device has them.
struct ShownImage {
    ImageName name;
    std::shared_ptr<const Tree> tree;
    std::string root;   // the directory of the tree that is shown, such as "/ODM"; in `name` too
    std::string place;  // such as "/mnt/vendor/my_region"
    // If set, returns the path of the tree's root in the image.
    std::function<std::string()> above;
};

// What a device holds of images.
struct Images {
    std::vector<ShownImage> shown;     // in the order of their partitions' names
    std::vector<std::string> files;    // of the images, by their paths in the device
    std::vector<std::string> covered;  // directories of the device in place of images
    std::vector<std::string> packed;   // places whose images are unpacked on the first look-up
    std::vector<std::string> notes;    // what the user should know of the files
};

// A device in any of its forms: a directory, an archive of one, or a file of one or more
// partitions.
class Firmware {
  public:
    // Opens the directory or file at `path` of this machine, and reads a file far enough to know
    // what it holds. `nothing` is a descriptor of the empty directory `nothing_path`; `on_damage`
    // is called with damage that is found later. The descriptor and what `on_damage` uses must
    // outlive the trees. Throws std::runtime_error with the name of what cannot be used.
    Firmware(const std::string& path, const Options& options, int nothing,
             const std::string& nothing_path,
             const std::function<void(const std::string& what)>& on_damage);
    ~Firmware();
    Firmware& operator=(Firmware&&) = delete;

    // Returns the device's files except those in images.
    std::shared_ptr<const Tree> tree() const;

    // Opens the device's images, and those that the options name. The device's files are looked up
    // in `view`, which shows nothing but tree(). Call it once. An image of one partition that is
    // damaged or of no known format is shown too, unless an option names it: a look-up in it
    // reports that. Throws as above.
    Images OpenImages(const View& view) const;

  private:
    class Opener;
    std::unique_ptr<Opener> opener_;
};

}  // namespace sandbox
