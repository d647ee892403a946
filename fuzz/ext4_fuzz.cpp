// Any bytes as the parts of an ext4 image that are not zero. Each part is two bytes for its place,
// and 64 bytes of content.

#include <string.h>

#include <algorithm>

#include "image.h"

namespace {

constexpr size_t kPart = 64;
constexpr size_t kSize = 64 * 1024;

std::string ImageOf(const uint8_t* data, size_t size) {
    std::string image(kSize, '\0');
    for (; size > sizeof(uint16_t); size -= std::min(size, sizeof(uint16_t) + kPart)) {
        const size_t at = (data[0] | data[1] << 8) * kPart % kSize;
        data += sizeof(uint16_t);
        memcpy(&image[at], data, std::min(size - sizeof(uint16_t), kPart));
        data += kPart;
    }
    return image;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) try {
    const fuzz::Bytes image(ImageOf(data, size));
    const auto system = images::OpenExt4(image);
    if (system == nullptr) return -1;
    fuzz::WalkAll(*system);
    return 0;
} catch (const images::Damage&) {
    return 0;
}
