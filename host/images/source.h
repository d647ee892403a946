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

    // Puts up to `size` bytes from `offset` on into `to` and returns how many, fewer only at the
    // end, which may come before size(). Throws Damage if they cannot be read.
    virtual size_t ReadUpTo(uint64_t offset, void* to, size_t size) const {
        const uint64_t left = offset < this->size() ? this->size() - offset : 0;
        if (size > left) size = static_cast<size_t>(left);
        if (size != 0) Read(offset, to, size);
        return size;
    }
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
