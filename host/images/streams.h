// Decompression of a single file.

#pragma once

#include <memory>
#include <string>

#include "spool.h"

namespace images {

// Returns "gzip", "xz", "zstd", "lz4" or "bzip2" if the source begins with that format's magic
// number, else null.
const char* CompressionOf(const Source& source);

// Returns the decompressed bytes of the source, which must outlive them and be compressed. The
// stream throws Damage, which names the compression.
std::unique_ptr<Stream> Unpacked(const Source& source);

}  // namespace images
