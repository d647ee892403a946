// The partition images of a device directory, such as odm.img, which stand for the files in them.

#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tree.h"
#include "view.h"

namespace sandbox {

struct Options;

// The files of an image, and where the device has them.
struct ShownImage {
    // As the user knows it, with the partition's name if it is one of several in the file.
    std::string path;
    std::shared_ptr<const Tree> tree;
    std::string root;   // the part of the tree that is shown, such as "" or "/system"
    std::string place;  // such as "/mnt/vendor/my_region"
    std::string link;   // where a link leads there too; empty for none
};

// What a device directory holds of images.
struct Images {
    std::vector<ShownImage> shown;   // in the order of their partitions' names
    std::vector<std::string> files;  // that stand for them, by their names in the directory
    std::vector<std::string> notes;  // what the user should know of the files
};

// Opens the images that lie in the directory `device`, seen as `view`, itself, and those that the
// options put there. `nothing` is a descriptor of an empty directory; it and `on_damage`, which is
// told what is found damaged later, live as long as the trees. Throws std::runtime_error naming the
// image that cannot be used.
Images OpenImages(const std::string& device, const View& view, const Options& options, int nothing,
                  const std::function<void(const std::string& what)>& on_damage);

}  // namespace sandbox
