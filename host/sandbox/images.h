// The partition images of a device directory, such as odm.img, which stand for the files in them.

#pragma once

#include <string>
#include <vector>

#include "extents.h"

namespace sandbox {

struct Options;

struct Image {
    std::string path;  // as the user knows it, with the partition's name if it is in a super.img
    std::string partition;  // such as "my_region"
    Extents content;
};

// What a device directory holds of images.
struct Images {
    std::vector<Image> partitions;   // in the order of their names
    std::vector<std::string> files;  // that stand for them, by their names in the directory
    std::vector<std::string> notes;  // what the user should know of the files
};

// Opens the images that lie in `device` itself. Throws std::runtime_error naming the one that
// cannot be used.
Images OpenImages(const std::string& device, const Options& options);

// The files of an image on this machine, and where the device has them.
struct UnpackedImage {
    std::string directory;
    std::string path_in_image;          // of the directory, such as "" or "/system"
    std::string place;                  // such as "/mnt/vendor/my_region"
    std::string link;                   // where a link leads there too; empty for none
    std::vector<std::string> left_out;  // directories whose files are not all there
};

// Puts the files that a boot can read into the new `directory`. Those that it cannot, such as apps,
// may be missing. Throws std::runtime_error naming the image.
UnpackedImage Unpack(const Image& image, const std::string& directory);

}  // namespace sandbox
