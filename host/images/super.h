// The logical partitions of a super partition.

#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "source.h"

namespace images {

class Super {
  public:
    // Reads the metadata for the slot, 'a' or 'b', or its backup copy if the checksums are wrong;
    // of an image with fewer slots those for the last. Returns null if the source is no super
    // partition. The source must outlive the result. Throws Damage if neither copy can be used or
    // the metadata exceed a limit.
    static std::unique_ptr<Super> Open(const Source& source, char slot);

    // In the order of the image's own table, which may be empty. A name may be any bytes.
    const std::vector<Volume>& volumes() const { return volumes_; }

    // Returns the content of the partition with this index in volumes(); the source must outlive
    // it. Throws Damage if the source ends before it, or it lies on another block device.
    std::unique_ptr<Source> OpenVolume(size_t index) const;

  private:
    struct Extents {
        uint64_t first;
        uint32_t count;
    };

    Super(const Source& source, std::string metadata);

    const Source& source_;
    std::string metadata_;
    std::vector<Volume> volumes_;
    std::vector<Extents> extents_;  // of each volume
};

}  // namespace images
