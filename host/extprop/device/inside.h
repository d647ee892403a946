// Look-ups in the files that this process sees: in the device's files by a process inside the
// sandbox. What is missing or cannot be read is no error.

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "device/property_text.h"

namespace extprop {

bool IsRegular(const std::string& path);    // false for a link to one
bool IsDirectory(const std::string& path);  // true for a link to one

struct DirectoryEntry {
    std::string name;
    bool is_directory;  // true for a link to one, too
};

// Returns what is in the directory, sorted by name, without "." and ".."; nothing if it cannot be
// read.
std::vector<DirectoryEntry> EntriesIn(const std::string& directory);

// Returns the properties that the library loads from a regular file and its imports, with this
// process's properties; none for anything else. The library may crash or hang on the file.
PropertyMap LoadedFrom(const std::string& path);

// Calls the function with each directory ROOT/properties/KEY/LEAF of a switch key: the index in
// SwitchKeys(), the key and the directory. A key may have slashes, but at most seven.
void ForEachKeyDirectory(const std::string& root,
                         const std::function<void(size_t index, const std::string& key,
                                                  const std::string& directory)>& visit);

}  // namespace extprop
