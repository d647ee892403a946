// The partition images of a device directory, such as odm.img, which stand for the files in them.

#pragma once

#include <string>
#include <vector>

#include <android-base/unique_fd.h>

namespace sandbox {

struct Options;

struct Image {
    std::string path;       // as the user knows it
    std::string name;       // in the device directory
    std::string partition;  // such as "my_region"
    std::string place;      // where the device has its files
    std::string link;       // where a link leads there too; empty for none
    android::base::unique_fd file;
};

// Opens the partition images that lie in `device` itself, in the order of their names, and adds to
// `*notes` what the user should know of them. Throws std::runtime_error naming the one that cannot
// be opened.
std::vector<Image> OpenImages(const std::string& device, const Options& options,
                              std::vector<std::string>* notes);

// The names of the files in the device directory that the images' own files are seen in place of.
std::vector<std::string> HiddenFiles(const std::vector<Image>& images);

// Puts the files of the image into `directory`, which is made. Throws std::runtime_error naming the
// image at fault.
void Unpack(Image* image, const std::string& directory);

}  // namespace sandbox
