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

    // In the order of the manifest, with distinct names, which may be any bytes.
    virtual std::vector<Volume> partitions() const = 0;

    // Unpacks the partition with this index in partitions() to the spool, each time anew, verifies
    // all checksums that the manifest has for it, and returns its content. Throws Damage if one is
    // wrong or that of the whole partition is missing, an operation is damaged or unknown, or there
    // is too much to unpack.
    virtual std::unique_ptr<Source> Open(size_t partition) const = 0;
};

// Returns the payload in the source, or null if there is none. Both arguments must outlive it.
// Throws Damage if it is of another version or cut off, if its manifest is damaged or exceeds a
// limit, or if it is incremental, that is, changes images of an older release.
std::unique_ptr<Payload> OpenPayload(const Source& source, Spool* spool);

}  // namespace images
