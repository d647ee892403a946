#include "device_files.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "checks.h"

namespace sandbox {

namespace {

void Done(long result, const std::string& what) {
    errno = static_cast<int>(-result);
    Check(result >= 0, what);
}

}  // namespace

DeviceFiles::DeviceFiles(const std::string& device, const Options& options)
        : device_(device),
          images_(OpenImages(device, options)),
          scratch_(images_.partitions.empty()) {
    const std::string directory = scratch_.path() + "/images";
    if (!images_.partitions.empty()) Check(mkdir(directory.c_str(), 0700) == 0, directory);
    for (Image& image : images_.partitions) {
        unpacked_.push_back(Unpack(image, directory + "/" + image.partition));
        image.content.clear();  // the file need not be open any more
    }
    Reset();
}

void DeviceFiles::Reset() {
    const std::string state = scratch_.path() + "/state-" + std::to_string(getpid());
    std::filesystem::remove_all(state);
    Check(mkdir(state.c_str(), 0700) == 0, state);
    view_.emplace(device_, state);
    for (size_t i = 0; i < unpacked_.size(); ++i) {
        const UnpackedImage& files = unpacked_[i];
        const std::string& image = images_.partitions[i].path;
        Done(view_->ShowTree(files.directory, files.place, files.left_out),
             image + ": cannot be shown at " + files.place);
        if (files.link.empty()) continue;
        Done(view_->MakeLink(files.place, files.link),
             image + ": cannot be linked to " + files.link);
    }
    for (const std::string& name : images_.files) view_->Remove({}, ("/" + name).c_str(), false);
    view_->TakeChanges();
}

std::optional<ImagePlace> DeviceFiles::ImageOf(const std::string& path) const {
    const auto [tree, path_in_tree] = view_->TreeAt(path);
    if (tree == 0) return std::nullopt;
    return ImagePlace{images_.partitions[tree - 1].path,
                      unpacked_[tree - 1].path_in_image + path_in_tree};
}

std::vector<std::string> DeviceFiles::Notes() const {
    std::vector<std::string> notes = images_.notes;
    for (const std::string& path : view_->Noted(View::kDenied)) {
        notes.push_back(path + " cannot be read by this user, though init could");
    }
    for (const std::string& path : view_->Noted(View::kLeftOut)) {
        notes.push_back(path + " was looked for where the image's files are not unpacked");
    }
    return notes;
}

void DeviceFiles::AttachBlockDevice(const std::string& path) {
    Done(view_->MakeBlockDevice(path), path);
}

std::string DeviceFiles::Outside(const std::string& path) const {
    Entry entry;
    const bool found = view_->Find(path, true, &entry) == 0 && entry.exists;
    return found ? entry.real : scratch_.path() + "/missing";
}

}  // namespace sandbox
