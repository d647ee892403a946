// The partition images of a device directory, such as odm.img, which stand for the files in them.

#pragma once

#include <string>
#include <vector>

#include <android-base/unique_fd.h>

namespace sandbox {

struct Image {
    std::string path;  // as the user knows it
    std::string name;  // in the device directory
    android::base::unique_fd file;
};

// Opens the partition images that lie in `device` itself, in the order of their names. Throws
// std::runtime_error naming the one that cannot be opened.
std::vector<Image> OpenImages(const std::string& device);

// Shows the files of the images, read-only, where a phone has them below `root`, and no longer the
// images. What has to be unpacked goes to the directory `scratch`, which is made. The calling
// process is taken into `root` for good. Throws std::runtime_error naming the image at fault.
void ShowImages(std::vector<Image> images, const std::string& scratch, const std::string& root);

}  // namespace sandbox
