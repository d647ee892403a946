// Which files of a device the library reads, how, and on what occasion.

#pragma once

#include <optional>
#include <string>
#include <vector>

namespace extprop {

// How the library uses a file decides what may stand in it.
enum class FileUse {
    kProperties,   // its names are the system's properties
    kKeyFile,      // the same, or in an older form the bare key
    kMapping,      // its names are keys of older software
    kCotaMessage,  // properties and instructions of the installing service
    kDeviceName,   // names looked up one by one, without imports
};

// What makes the library read a file.
enum class Occasion {
    kPartition,      // its root is in the list of partitions: step early
    kKeyDirectory,   // a switch key is in force: the step of its command
    kOldKeyFile,     // the target of the old nv key is in force: step persist
    kNvMap,          // an old key is migrated: step persist
    kFlagMap,        // there is an old nv key: step persist
    kKeyFiles,       // the first step persist of a boot
    kDataCommon,     // its own switch command
    kEmptyChannel,   // its own switch command
    kCompanyConfig,  // step duskrider
    kMountInfo,      // a carrier-package command
    kModuleInfo,     // a carrier-package command
};

// A file that the library knows by its whole path.
struct FixedFile {
    const char* path;
    FileUse use;
    Occasion occasion;
    const char* property = nullptr;  // the one that the library takes from it, if there is one
};
const std::vector<FixedFile>& FixedFiles();

// Returns how the library uses the file at the device's `path`, if it may be a property file.
std::optional<FileUse> UseOf(const std::string& path);

// A switch key: the property, the directories that belong to it and the command that loads them.
struct SwitchKey {
    const char* property;
    const char* leaf;
    const char* command;   // of step sim
    const char* key_file;  // the file that gives the persist stage its key
};
const std::vector<SwitchKey>& SwitchKeys();

// Below each root, the directory in which the switch keys' directories lie.
inline constexpr char kKeysDirectory[] = "properties";

// Whether the file lies in a switch key's directory below some root's "properties".
bool IsOfSwitchKey(const std::string& path);

// The file of a root that every boot reads.
inline constexpr char kBuildProp[] = "build.prop";

// Returns the roots that the brand of this code or the region, or both, add to the list of
// partitions.
std::vector<std::string> AddedRoots(const std::string& brand_code, const std::string& region);

// Returns the directory of which each one in it is a region's root.
const std::string& RegionsDirectory();

// Words of a command line.
using Words = std::vector<std::string>;

inline Words operator+(Words words, const Words& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

// One reason for which the library reads a file.
struct Reading {
    Occasion occasion = Occasion::kPartition;
    Words root_words;  // that bring its root into the list of partitions
    enum Root { kListed, kCompany, kPackage, kModule, kElsewhere } root = kListed;
    std::string place;              // of a root that is not listed: its path
    bool is_through_mount = false;  // a package's or module's file at a listed root
    int key_index = 0;              // of a key directory: in SwitchKeys()
    std::string key;  // of a key directory; of an old key file an nv key that leads there
};

}  // namespace extprop
