// What a process inside the sandbox looks up in the device's files.

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "device/property_text.h"

namespace extprop {

bool IsRegular(const std::string& path);  // and no link to one
bool IsDirectory(const std::string& path);

struct Entry {
    std::string name;
    bool is_directory;  // or a link to one
};

// Returns what is in the directory, in the order of the names; nothing if it cannot be read.
std::vector<Entry> EntriesIn(const std::string& directory);

// Returns the properties that the library loads from a regular file, and none from anything else.
PropertyMap LoadedFrom(const std::string& path);

// Tells of each directory of a switch key below the root: the index in SwitchKeys(), the key and
// the directory.
void ForEachKeyDirectory(const std::string& root,
                         const std::function<void(size_t index, const std::string& key,
                                                  const std::string& directory)>& tell);

}  // namespace extprop
