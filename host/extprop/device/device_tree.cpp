#include "device/device_tree.h"

#include <errno.h>

#include <algorithm>

namespace extprop {

bool DeviceTree::Find(const std::string& path, bool follow, Place* place) const {
    sandbox::Entry entry;
    const long error = view_.Find(path, follow, &entry);
    errno = error < 0 ? static_cast<int>(-error) : ENOENT;
    if (error < 0 || !entry.exists) return false;
    *place = {view_.PathOf(entry), entry.status};
    return true;
}

std::string DeviceTree::Outside(const std::string& path) const {
    sandbox::Entry entry;
    return view_.Find(path, false, &entry) == 0 ? entry.real : path;
}

std::vector<Place> DeviceTree::All(std::vector<std::string>* unreadable) const {
    std::vector<Place> places;
    std::vector<std::string> directories = {""};
    while (!directories.empty()) {
        const std::string directory = std::move(directories.back());
        directories.pop_back();
        sandbox::Entry entry;
        std::vector<std::string> names;
        if (view_.Find(directory + "/", true, &entry) < 0 || view_.List(entry, &names) < 0) {
            unreadable->push_back(directory);
        }
        for (const std::string& name : names) {
            const std::string path = directory + "/" + name;
            if (view_.Find(path, false, &entry) < 0 || !entry.exists) continue;
            if (entry.is_directory()) directories.push_back(path);
            places.push_back({path, entry.status});
        }
    }
    std::sort(places.begin(), places.end(),
              [](const Place& a, const Place& b) { return a.path < b.path; });
    return places;
}

}  // namespace extprop
