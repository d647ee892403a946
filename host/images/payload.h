// An update's payload: partitions, each made by operations on packed data.

#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "source.h"
#include "spool.h"

namespace images {

class Payload {
  public:
    virtual ~Payload() = default;

    // In the order of the manifest.
    virtual std::vector<Volume> partitions() const = 0;

    // Unpacks a partition to the spool and returns its content, all checksums compared. Throws
    // Damage.
    virtual std::unique_ptr<Source> Open(size_t partition) const = 0;
};

// Returns the payload in the source, or null if it is none. Both the source and the spool must live
// as long. Throws Damage if it is damaged, or changes other images instead of holding its own.
std::unique_ptr<Payload> OpenPayload(const Source& source, Spool* spool);

}  // namespace images
