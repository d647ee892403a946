// Decompression of a single file.

#pragma once

#include <memory>

#include "spool.h"

namespace images {

// Returns "gzip", "xz", "zstd", "lz4" or "bzip2" if the source begins with that format's magic
// number, else null. Throws Damage if it cannot be read.
const char* CompressionOf(const Source& source);

// Returns the decompressed bytes of the source, which must outlive them and be compressed, that is,
// have a CompressionOf(). This function and the stream throw Damage, which names the compression,
// if the source is damaged, compressed more than once or holds no bytes.
std::unique_ptr<Stream> Unpacked(const Source& source);

}  // namespace images
