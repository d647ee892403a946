// An update's payload: partitions, each built by operations on packed data.

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

    // Unpacks a partition to the spool, verifies all its checksums, and returns its content. Throws
    // Damage.
    virtual std::unique_ptr<Source> Open(size_t partition) const = 0;
};

// Returns the payload in the source, or null if there is none. Both arguments must outlive it.
// Throws Damage if it is damaged or incremental, that is, changes images of an older release.
std::unique_ptr<Payload> OpenPayload(const Source& source, Spool* spool);

}  // namespace images
