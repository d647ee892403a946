// A source of an image's bytes.

#pragma once

#include <stddef.h>
#include <stdint.h>

#include <stdexcept>
#include <string>

namespace images {

// Thrown if an image contradicts its format, exceeds a limit or cannot be read. The text is what is
// wrong, without the image's name: "inode 36: a name with a '/'".
class Damage : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Source {
  public:
    virtual ~Source() = default;

    // Returns the size in bytes, without reading. Compressed content may turn out to be smaller.
    virtual uint64_t size() const = 0;

    // Copies `size` bytes from `offset` on to `to`. Throws Damage if the source has fewer or they
    // cannot be read.
    virtual void Read(uint64_t offset, void* to, size_t size) const = 0;

    // Copies at most `size` bytes from `offset` on to `to`. Returns how many: fewer only at the
    // end, which may come before size(). Throws Damage if they cannot be read.
    virtual size_t ReadUpTo(uint64_t offset, void* to, size_t size) const {
        const uint64_t left = offset < this->size() ? this->size() - offset : 0;
        if (size > left) size = static_cast<size_t>(left);
        if (size != 0) Read(offset, to, size);
        return size;
    }
};

// One of the file systems that an image file may hold: the only one, without a name, or a partition
// of a super image or an update.
struct Volume {
    std::string name;
    uint64_t size;  // in bytes, as Source::size()
};

// Returns `size` bytes from `offset` on. Throws Damage as Read() does. The caller bounds `size`.
inline std::string ReadBytes(const Source& source, uint64_t offset, size_t size) {
    std::string bytes(size, '\0');
    source.Read(offset, bytes.data(), size);
    return bytes;
}

}  // namespace images
