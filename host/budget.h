// A budget for all that strangers can ask for, in one place. Ordinary devices never meet these
// limits; whatever does is an error that names the limit and the file that met it.

#pragma once

#include <stddef.h>
#include <stdint.h>

namespace limits {

// Images.
inline constexpr uint64_t kImageFile = uint64_t{1} << 30;        // one file of an image, in bytes
inline constexpr uint64_t kImageDirectory = uint64_t{32} << 20;  // a directory's data, in bytes
inline constexpr size_t kImageNames = 200'000;                   // in one directory

}  // namespace limits
