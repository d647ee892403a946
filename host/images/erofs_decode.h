// The compression of EROFS.

#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>

#include "erofs_head.h"

namespace images::erofs {

// Decodes `size` bytes, more than 0, to `to`, from a stream that ends with them; a partial one may
// go on, and something else may follow it. Returns false if that cannot be.
bool Decode(Algorithm algorithm, std::string_view stream, bool is_partial, uint32_t lzma_dictionary,
            char* to, size_t size);

}  // namespace images::erofs
