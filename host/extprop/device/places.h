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

// Returns the directories of which each one in it is a region's root.
const std::vector<std::string>& RegionsDirectories();

// Returns the directory in which a partition would be mounted that the path is on: "/odm" or
// "/mnt/vendor/my_region".
std::string PartitionOf(const std::string& path);

// What the library has to do with the partition at a directory.
struct PartitionKind {
    enum {
        kKnown,     // it has roots there, or the system shows a partition with roots there too
        kMisspelt,  // the name is nearly that of a known one
        kAlike,     // the name is of the known ones' form
        kSystems,   // nothing
    } kind = kSystems;
    std::string nearest;  // of a misspelt one where the known one would be
};
PartitionKind KindOfPartition(const std::string& directory);

// Whether the system's own init may load the file, whatever the library does.
bool IsSystems(const std::string& path);

}  // namespace extprop
