// The numbers of image formats.

#pragma once

#include <endian.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string_view>

namespace images {

// Each returns the number at a place, which the bytes must hold.
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

// Says whether a piece lies inside something of the given size. Takes any numbers.
inline bool IsInside(uint64_t offset, uint64_t size, uint64_t whole) {
    return size <= whole && offset <= whole - size;
}

}  // namespace images
