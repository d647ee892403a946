// Which files of a device the library reads, how, and when. All functions judge an absolute path of
// the device by its text; they look at no file.

#pragma once

#include <optional>
#include <string>
#include <vector>

namespace extprop {

// How the library uses a file, which decides what the file may contain.
enum class FileUse {
    kProperties,   // its names are the system's properties
    kKeyFile,      // the same, or only the key, in an older form
    kMapping,      // its names are keys of older software
    kCotaMessage,  // properties and instructions of the installing service
    kDeviceName,   // names looked up one by one, without imports
};

// What makes the library read a file.
enum class LoadTrigger {
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
    LoadTrigger trigger;
    const char* property = nullptr;  // the one that the library takes from it, if there is one
};
const std::vector<FixedFile>& FixedFiles();

// Returns how the library uses the file at `path`, or nothing if only an import can make it a
// property file.
std::optional<FileUse> UseOf(const std::string& path);

// A switch key: the property, the directories that belong to it and the command that loads them.
struct SwitchKey {
    const char* property;
    const char* leaf;
    const char* command;   // of step sim
    const char* key_file;  // the file that gives the persist stage its key
};
const std::vector<SwitchKey>& SwitchKeys();

// The directory of each root that holds the switch keys' directories.
inline constexpr char kKeysDirectory[] = "properties";

// Returns whether the file lies in a directory properties/KEY/LEAF of a switch key, whatever is
// above "properties".
bool IsOfSwitchKey(const std::string& path);

// The file of a root that every boot reads.
inline constexpr char kBuildProp[] = "build.prop";

// Returns the roots that the region and the brand with this code add to the list of partitions,
// known or not. Either may be empty and then adds none.
std::vector<std::string> AddedRoots(const std::string& brand_code, const std::string& region);

// Returns the directories in which each directory is the root of a region.
const std::vector<std::string>& RegionsDirectories();

// Returns the mount point of the partition that would hold the path, such as "/odm" or
// "/mnt/vendor/my_region"; the path itself if nothing is above it but the root or /mnt/vendor.
std::string PartitionOf(const std::string& path);

// How the library uses the partition that is mounted at a directory.
struct PartitionKind {
    enum {
        kKnown,     // it has roots there, or where the phone shows the same partition
        kMisspelt,  // the name is nearly that of a known partition
        kAlike,     // the name has the form of the known ones
        kSystems,   // not at all: it is the system's
    } kind = kSystems;
    std::string nearest;  // for kMisspelt: the directory of the known one; else empty
};
PartitionKind KindOfPartition(const std::string& directory);

// Returns whether the system's own init may load the file, independently of the library: it lies on
// a partition of the system's, at no place of the library's, or is one that init loads from /odm.
bool IsSystems(const std::string& path);

}  // namespace extprop
