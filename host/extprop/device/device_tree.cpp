#include "device/device_tree.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include <android-base/file.h>

#include "input_error.h"

namespace extprop {

namespace {

namespace fs = std::filesystem;

// Returns the path of an open file, or an empty one for the root.
std::string PathOf(int fd) {
    std::string path;
    android::base::Readlink("/proc/self/fd/" + std::to_string(fd), &path);
    return path == "/" ? "" : path;
}

}  // namespace

DeviceTree::DeviceTree(const std::string& device)
        : root_(open(device.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (!root_.ok()) throw InputError(device + ": " + strerror(errno));
    root_path_ = PathOf(root_.get());
}

bool DeviceTree::Find(const std::string& path, bool follow, Place* place) const {
    open_how how = {};
    how.flags = O_PATH | O_CLOEXEC | (follow ? 0 : O_NOFOLLOW);
    how.resolve = RESOLVE_IN_ROOT;
    android::base::unique_fd fd(
            static_cast<int>(syscall(SYS_openat2, root_.get(), path.c_str(), &how, sizeof(how))));
    if (!fd.ok() || fstat(fd.get(), &place->status) != 0) return false;
    place->path = PathOf(fd.get()).substr(root_path_.size());
    return true;
}

std::string DeviceTree::Outside(const std::string& path) const {
    // The tree may lie in a mount namespace where this process has no path to it.
    return "/proc/self/fd/" + std::to_string(root_.get()) + path;
}

std::vector<Place> DeviceTree::All(std::vector<std::string>* unreadable) const {
    std::vector<Place> places;
    std::vector<std::string> directories = {""};
    while (!directories.empty()) {
        const std::string directory = std::move(directories.back());
        directories.pop_back();
        std::error_code error;
        fs::directory_iterator entry(Outside(directory) + "/", error);
        for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
            Place place{directory + "/" + entry->path().filename().string(), {}};
            if (lstat(entry->path().c_str(), &place.status) != 0) continue;
            if (place.is_directory()) directories.push_back(place.path);
            places.push_back(std::move(place));
        }
        if (error) unreadable->push_back(directory);
    }
    std::sort(places.begin(), places.end(),
              [](const Place& a, const Place& b) { return a.path < b.path; });
    return places;
}

}  // namespace extprop
