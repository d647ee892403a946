// What the names of firmware files reveal of their content.

#pragma once

#include <optional>
#include <string>

namespace sandbox {

// The directory in which most partitions are mounted. A phone shows them directly below / too.
inline constexpr char kPartitionMounts[] = "/mnt/vendor/";

// A partition that is shown.
struct Partition {
    const char* name;     // a pattern, as of fnmatch(3)
    const char* parent;   // the directory on the phone in which it is mounted
    bool is_always_read;  // every boot reads it
};

// Returns the entry in the table for the partition, named without a slot, or null if the tool does
// not show it. `name` may be any text.
const Partition* FindPartition(const std::string& name);

// Returns whether the name has only letters and digits of ASCII and "_", as a partition's has; also
// if it is empty. An image, which is untrusted, may give any text.
bool IsPartitionName(const std::string& name);

// Removes a slot's suffix, "_a" or "_b", from the partition's name. Returns the slot, 'a' or 'b',
// or 0 if there is no suffix.
char TakeSlot(std::string* name);

// Returns the partition that a directory of a build's target files holds, such as "my_region" for
// "MY_REGION", or "" if the directory's name is not that of a partition that is shown, in capitals.
std::string PartitionOfTargetFiles(const std::string& directory);

// Returns whether a device's root has a directory of this name, or builds put images into one.
bool IsOfDevice(const std::string& directory);

// Images of many partitions, as FileName::image has them.
inline constexpr char kSuper[] = "super";
inline constexpr char kPayload[] = "payload.bin";

// The directory of target files that images lie in.
inline constexpr char kImagesDirectory[] = "IMAGES";

// What the name of a file reveals of its content.
struct FileName {
    std::string image = "";              // such as "my_region_a", any bytes; empty if it is none
    std::optional<int> part = {};        // the part's number, of a split image: up to four digits
    bool is_archive = false;             // of a format that can be opened
    const char* whats_unread = nullptr;  // what an ignored file is, and what to do
};

// Parses names without a directory, such as "odm.img", "odm.img.zst", "payload.bin",
// "super.img_sparsechunk.3", "super_3.img" and "ota.zip"; endings in any case. Every other name
// gives the defaults.
FileName ParseFileName(const std::string& name);

// Returns whether the image is of a partition that is shown, or of many partitions.
bool IsOfPartitions(const std::string& image);

}  // namespace sandbox
