// The content of a partition as the places where its parts lie, read without a copy of the whole.

#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>

namespace sandbox {

using SharedFile = std::shared_ptr<android::base::unique_fd>;

struct Extent {
    uint64_t size;
    SharedFile file;  // null: `fill` over and over
    uint64_t offset;  // in the file
    uint32_t fill;
};

using Extents = std::vector<Extent>;

uint64_t SizeOf(const Extents& extents);

// Returns the part of the content. Throws std::runtime_error if it is not all there.
Extents Slice(const Extents& extents, uint64_t offset, uint64_t size);

// Reads bytes of the content. Throws std::runtime_error if they are not all there.
std::string ReadBytes(const Extents& extents, uint64_t offset, size_t size);

// Writes the content to a new file, with holes for what is zero. Throws std::runtime_error.
void WriteTo(const Extents& extents, const std::string& path);

// Returns the content of the open file: its bytes or, if it is an Android sparse image, what that
// stands for. Throws std::runtime_error if it is damaged.
Extents ContentOf(SharedFile file);

// A logical partition of a super partition.
struct LogicalPartition {
    std::string name;
    Extents content;
};

// Returns the logical partitions, by the metadata for the slot, whose checksums are checked; where
// they are wrong by its backup copy. Throws std::runtime_error if neither can be used.
std::vector<LogicalPartition> LogicalPartitions(const Extents& super, char slot);

}  // namespace sandbox
