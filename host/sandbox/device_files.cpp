#include "device_files.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "../budget.h"
#include "checks.h"
#include "file_names.h"

namespace sandbox {

namespace {

using android::base::Basename;
using android::base::StartsWith;

void Done(long result, const std::string& what) {
    errno = static_cast<int>(-result);
    Check(result >= 0, what);
}

std::string Mebibytes(uint64_t bytes) {
    return std::to_string(bytes >> 20) + " MiB";
}

}  // namespace

DeviceFiles::DeviceFiles(const std::string& device, const Options& options) {
    const std::string nothing = scratch_.path() + "/nothing";
    Check(mkdir(nothing.c_str(), 0700) == 0, nothing);
    nothing_.reset(OpenOrThrow(nothing, O_PATH | O_DIRECTORY));
    nothing_tree_ = std::make_shared<DirectoryTree>(nothing);
    firmware_.emplace(device, options, nothing_.get(), nothing, [this](const std::string& what) {
        if (!view_) throw std::runtime_error(what);
        view_->Note(View::kDamaged, what);
    });
    Restart();
    images_ = firmware_->OpenImages(*view_);
    FindMounted();
    ShowImages();
}

// Makes the view anew, of the device directory alone.
void DeviceFiles::Restart() {
    const std::string state = scratch_.path() + "/state-" + std::to_string(getpid());
    std::filesystem::remove_all(state);
    Check(mkdir(state.c_str(), 0700) == 0, state);
    view_.emplace(firmware_->tree(), state, scratch_.path());
}

void DeviceFiles::ShowImages() {
    for (const ShownImage& image : images_.shown) {
        Done(view_->ShowTree(image.tree, image.root, image.place),
             image.name.path + ": cannot be shown at " + image.place);
    }
    for (const std::string& directory : images_.covered) {
        Done(view_->ShowTree(nothing_tree_, "", directory), directory);
    }
    for (const std::string& path : images_.files) view_->Remove({}, path.c_str(), false);
    view_->TakeChanges();
    Done(view_->MakeLinks(kPartitionMounts, mounted_),
         std::string(kPartitionMounts) + ": cannot be linked to");
}

// Finds the partitions of images, which need not be looked into, and of the device's directories.
void DeviceFiles::FindMounted() {
    constexpr char kPrefix[] = "my_";
    for (const ShownImage& image : images_.shown) {
        if (StartsWith(image.place, kPartitionMounts)) mounted_.push_back(Basename(image.place));
    }
    ResolvedPath mounts;
    std::vector<Listed> names;
    if (view_->Find(kPartitionMounts, true, &mounts) < 0 || !mounts.is_directory()) return;
    if (view_->List(mounts, &names) < 0) return;
    for (const Listed& listed : names) {
        ResolvedPath partition;
        if (StartsWith(listed.name, kPrefix) &&
            view_->FindIn(mounts, listed.name, &partition) >= 0 && partition.is_directory()) {
            mounted_.push_back(listed.name);
        }
    }
}

void DeviceFiles::Reset() {
    Restart();
    ShowImages();
}

std::optional<ImagePlace> DeviceFiles::ImageOf(const std::string& path) const {
    const auto [tree, path_in_tree] = view_->TreeAt(path);
    if (tree == 0 || tree > images_.shown.size()) return std::nullopt;
    const ShownImage& image = images_.shown[tree - 1];
    const std::string above = image.above ? image.above() : "";
    return ImagePlace{image.name.path, image.name.name,
                      above + path_in_tree.substr(image.root.size())};
}

std::vector<std::string> DeviceFiles::Notes() const {
    CheckImages();
    std::vector<std::string> notes = images_.notes;
    for (const std::string& path : Unreadable()) {
        notes.push_back(path + kDeniedToUser);
    }
    for (const std::string& path : view_->Noted(View::kTooLarge)) {
        notes.push_back(path + " was not opened: it is larger than " +
                        Mebibytes(limits::kPropertyFile) + ", or, as a partition or logo, than " +
                        Mebibytes(limits::kPartitionFile));
    }
    return notes;
}

std::set<std::string> DeviceFiles::Unreadable() const {
    return view_->Noted(View::kDenied);
}

void DeviceFiles::CheckImages() const {
    for (const std::string& damage : view_->Noted(View::kDamaged)) {
        throw std::runtime_error(damage);
    }
}

bool DeviceFiles::AttachBlockDevice(const std::string& path) {
    const long error = view_->MakeBlockDevice(path);
    if (error == -ENOENT || error == -ENOTDIR || error == -ENOTBLK) return false;
    if (error == -EFBIG) {
        throw std::runtime_error(path + ": larger than " + Mebibytes(limits::kPartitionFile));
    }
    Done(error, path);
    return true;
}

std::string DeviceFiles::Read(const std::string& path, size_t most) const {
    std::string content;
    Done(view_->Read(path, most, &content), path);
    return content;
}

}  // namespace sandbox
