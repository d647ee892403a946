// Look-ups in the device's files by a process inside the sandbox.

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "device/property_text.h"

namespace extprop {

bool IsRegular(const std::string& path);  // false for a link to one
bool IsDirectory(const std::string& path);

struct DirectoryEntry {
    std::string name;
    bool is_directory;  // true for a link to one, too
};

// Returns what is in the directory, sorted by name; nothing if it cannot be read.
std::vector<DirectoryEntry> EntriesIn(const std::string& directory);

// Returns the properties that the library loads from a regular file; none for anything else.
PropertyMap LoadedFrom(const std::string& path);

// Calls the function with each directory of a switch key below the root: the index in SwitchKeys(),
// the key and the directory.
void ForEachKeyDirectory(const std::string& root,
                         const std::function<void(size_t index, const std::string& key,
                                                  const std::string& directory)>& visit);

}  // namespace extprop
