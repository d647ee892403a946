#include "device/inside.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "device/places.h"
#include "utils.h"

namespace extprop {

namespace {

// How deep the directories of a switch key may lie: a key may contain slashes.
constexpr int kDeepestKey = 8;

}  // namespace

bool IsRegular(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool IsDirectory(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::vector<DirectoryEntry> EntriesIn(const std::string& directory) {
    std::vector<DirectoryEntry> entries;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code dangling;
        entries.push_back({entry->path().filename(), entry->is_directory(dangling)});
    }
    std::sort(entries.begin(), entries.end(),
              [](const DirectoryEntry& a, const DirectoryEntry& b) { return a.name < b.name; });
    return entries;
}

PropertyMap LoadedFrom(const std::string& path) {
    PropertyMap properties;
    if (!IsRegular(path)) return properties;
    load_properties_from_file_without_se(path.c_str(), nullptr, &properties);
    return properties;
}

void ForEachKeyDirectory(const std::string& root,
                         const std::function<void(size_t index, const std::string& key,
                                                  const std::string& directory)>& visit) {
    const std::function<void(const std::string&)> look = [&](const std::string& key) {
        if (std::count(key.begin(), key.end(), '/') >= kDeepestKey) return;
        const std::string directory = root + "/" + kKeysDirectory + (key.empty() ? "" : "/" + key);
        for (const DirectoryEntry& entry : EntriesIn(directory)) {
            if (!entry.is_directory) continue;
            for (size_t i = 0; i < SwitchKeys().size() && !key.empty(); ++i) {
                if (entry.name == SwitchKeys()[i].leaf) visit(i, key, directory + "/" + entry.name);
            }
            look(key.empty() ? entry.name : key + "/" + entry.name);
        }
    };
    look("");
}

}  // namespace extprop
