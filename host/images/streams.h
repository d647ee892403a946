// Decompression of one stream, as tools pack a single file.

#pragma once

#include <memory>
#include <string>

#include "spool.h"

namespace images {

// Returns "gzip", "xz", "zstd", "lz4" or "bzip2" if the source begins as such a file does, else
// null.
const char* CompressionOf(const Source& source);

// Returns what the source, which must live as long, holds packed. The stream throws Damage naming
// the compression.
std::unique_ptr<Stream> Unpacked(const Source& source);

}  // namespace images
