// Little-endian numbers, as image formats have them.

#pragma once

#include <endian.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string_view>

namespace images {

// Each returns the number at the offset `at`. The caller makes sure that `bytes` hold all of it.
inline uint16_t Little16(std::string_view bytes, size_t at) {
    uint16_t number;
    memcpy(&number, bytes.data() + at, sizeof number);
    return le16toh(number);
}

inline uint32_t Little32(std::string_view bytes, size_t at) {
    uint32_t number;
    memcpy(&number, bytes.data() + at, sizeof number);
    return le32toh(number);
}

inline uint64_t Little64(std::string_view bytes, size_t at) {
    uint64_t number;
    memcpy(&number, bytes.data() + at, sizeof number);
    return le64toh(number);
}

// Returns whether `size` bytes from `offset` on lie inside `whole` bytes. Any numbers are allowed.
inline bool IsInside(uint64_t offset, uint64_t size, uint64_t whole) {
    return size <= whole && offset <= whole - size;
}

}  // namespace images
