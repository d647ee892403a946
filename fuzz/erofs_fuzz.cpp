// Any bytes as an EROFS image, from its superblock on: reads all of a small tree, and expects the
// same bytes when pieces are read in another order.

#include "image.h"

namespace {

constexpr size_t kSuperblock = 1024;
constexpr size_t kCompatible = 8;  // features; the first bit: there is a checksum

std::string ImageOf(const uint8_t* data, size_t size) {
    std::string image(kSuperblock, '\0');
    image.append(reinterpret_cast<const char*>(data), size);
    if (size > kCompatible) image[kSuperblock + kCompatible] &= ~1;
    return image;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) try {
    const fuzz::Bytes image(ImageOf(data, size));
    const auto files = images::OpenErofs(image);
    if (files == nullptr) return -1;
    fuzz::WalkAll(*files);
    return 0;
} catch (const images::Damage&) {
    return 0;
}
