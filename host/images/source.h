// The bytes of an image, wherever they lie.

#pragma once

#include <stddef.h>
#include <stdint.h>

#include <stdexcept>
#include <string>

namespace images {

// What contradicts an image's format, or asks for more than the limits allow. The text says what,
// without the image's name, such as "inode 36: a name with a '/'".
class Damage : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Source {
  public:
    virtual ~Source() = default;

    // In bytes; known without reading.
    virtual uint64_t size() const = 0;

    // Puts `size` bytes from `offset` on into `to`. Throws Damage if they are not all there or
    // cannot be read.
    virtual void Read(uint64_t offset, void* to, size_t size) const = 0;
};

// What an image file holds: one volume without a name, or the logical partitions of a super image.
struct Volume {
    std::string name;
    uint64_t size;  // in bytes
};

// Returns bytes of the source. Throws Damage as above. The caller bounds `size` first.
inline std::string ReadBytes(const Source& source, uint64_t offset, size_t size) {
    std::string bytes(size, '\0');
    source.Read(offset, bytes.data(), size);
    return bytes;
}

}  // namespace images
