// What the names of files say that firmware comes in.

#pragma once

#include <optional>
#include <string>

namespace sandbox {

// A partition that is shown.
struct Partition {
    const char* name;     // a pattern
    const char* parent;   // the directory that a phone mounts it in
    bool is_always_read;  // every boot reads it
};

// Returns the partition's line in the table, or null if it is none that is shown.
const Partition* FindPartition(const std::string& name);

// Whether a partition can have the name: what comes out of an image may be anything.
bool IsPartitionName(const std::string& name);

// Takes a slot's suffix off the partition's name and returns the slot, or 0 if there is none.
char TakeSlot(std::string* name);

// Returns the partition that a directory of a build's target files holds, such as "my_region" of
// "MY_REGION", or nothing.
std::string PartitionOfTargetFiles(const std::string& directory);

// Whether a directory of this name is one of a device's root, or one that builds put images into.
bool IsOfDevice(const std::string& directory);

// Images of many partitions, by what ParseFileName() calls them.
inline constexpr char kSuper[] = "super";
inline constexpr char kPayload[] = "payload.bin";

// The directory of target files that images lie in.
inline constexpr char kImagesDirectory[] = "IMAGES";

// What a file's name says of it.
struct FileName {
    std::string image = "";              // such as "my_region_a"; empty if it is no image's
    std::optional<int> part = {};        // of a split image
    bool is_archive = false;             // that can be looked into
    const char* whats_unread = nullptr;  // what it is, and how it can be made use of
};

// Parses names such as "odm.img", "odm.img.zst", "payload.bin", "super.img_sparsechunk.3",
// "super_3.img" and "ota.zip".
FileName ParseFileName(const std::string& name);

// Whether the image is one of a partition that is shown, or of many.
bool IsOfPartitions(const std::string& image);

}  // namespace sandbox
