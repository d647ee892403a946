// Whether this is a sanitizer's build, which takes too much memory of its own for any limit.

#pragma once

#ifdef SANITIZED  // which the build defines for all of its code, sanitized or not
inline constexpr bool kIsSanitized = true;
#else
inline constexpr bool kIsSanitized = false;
#endif
