// Decompression of EROFS extents.

#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>

#include "erofs_head.h"

namespace images::erofs {

// Decodes `size` bytes, at least 1, from `stream` to `to`. The stream must end with them, unless
// `is_partial`: then it may hold more, and other data may follow it. The caller makes sure that
// `size` and the stream's size are within limits::kErofsDecoded and limits::kErofsCompressed.
// `lzma_dictionary` is in bytes. Returns false if the stream is damaged, or memory is short.
bool Decode(Algorithm algorithm, std::string_view stream, bool is_partial, uint32_t lzma_dictionary,
            char* to, size_t size);

}  // namespace images::erofs
