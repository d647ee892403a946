#include "device/device_tree.h"

#include <errno.h>
#include <limits.h>

#include <algorithm>
#include <stdexcept>

#include "../../budget.h"

namespace extprop {

bool DeviceTree::Find(const std::string& path, bool follow, FoundFile* place) const {
    sandbox::ResolvedPath entry;
    const long error = view_.Find(path, follow, &entry);
    errno = error < 0 ? static_cast<int>(-error) : ENOENT;
    if (error < 0 || !entry.exists) return false;
    *place = {view_.PathOf(entry), entry.status};
    return true;
}

std::vector<std::string> DeviceTree::Names(const std::string& directory) const {
    std::vector<std::string> names;
    std::vector<sandbox::Listed> listed;
    sandbox::ResolvedPath entry;
    const std::string path = directory.empty() ? "/" : directory;
    if (view_.Find(path, true, &entry) < 0 || !entry.exists || !entry.is_directory()) return names;
    if (view_.List(entry, &listed) < 0) return names;
    for (sandbox::Listed& each : listed) names.push_back(std::move(each.name));
    std::sort(names.begin(), names.end());
    return names;
}

bool DeviceTree::Read(const std::string& path, size_t most, std::string* content) const {
    const long error = view_.Read(path, most, content);
    errno = static_cast<int>(-error);
    return error == 0;
}

std::vector<FoundFile> DeviceTree::All(const std::vector<std::string>& left_out,
                                       std::vector<std::string>* unreadable) const {
    std::vector<FoundFile> places;
    size_t bytes = 0;
    struct Directory {
        std::string path;
        sandbox::ResolvedPath entry;
    };
    std::vector<Directory> directories(1);
    if (view_.Find("/", true, &directories[0].entry) < 0) return places;
    while (!directories.empty()) {
        const Directory directory = std::move(directories.back());
        directories.pop_back();
        std::vector<sandbox::Listed> names;
        if (view_.List(directory.entry, &names) < 0) unreadable->push_back(directory.path);
        for (const auto& [name, type] : names) {
            std::string path = directory.path + "/" + name;
            // No program on the device can open a longer path.
            if (path.size() >= PATH_MAX) continue;
            sandbox::ResolvedPath entry;
            if (view_.FindIn(directory.entry, name, &entry) < 0 || !entry.exists) continue;
            if (entry.is_directory() &&
                std::find(left_out.begin(), left_out.end(), path) == left_out.end()) {
                directories.push_back({path, entry});
            }
            bytes += path.size();
            places.push_back({std::move(path), entry.status});
            if (places.size() > limits::kDeviceFiles || bytes > limits::kDevicePaths) {
                throw std::runtime_error(directory.path +
                                         ": up to this directory there are more than " +
                                         std::to_string(limits::kDeviceFiles) + " files, or " +
                                         std::to_string(limits::kDevicePaths >> 20) +
                                         " MiB of their paths, which is the limit");
            }
        }
    }
    std::sort(places.begin(), places.end(),
              [](const FoundFile& a, const FoundFile& b) { return a.path < b.path; });
    return places;
}

}  // namespace extprop
