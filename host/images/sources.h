// Sources: a file, and parts of another source put together. Neither copies or keeps content.

#pragma once

#include <stdint.h>

#include <memory>
#include <vector>

#include "source.h"

namespace images {

// The bytes of an open regular file or block device.
class FileSource : public Source {
  public:
    // The descriptor stays the caller's. Throws Damage if its size is not to be had.
    explicit FileSource(int fd);

    uint64_t size() const override { return size_; }
    void Read(uint64_t offset, void* to, size_t size) const override;

  private:
    int fd_;
    uint64_t size_;
    mutable uint64_t read_ = 0;
};

// Parts of another source and repeated words, in a row.
class ExtentSource : public Source {
  public:
    // The source must live as long.
    explicit ExtentSource(const Source& base) : base_(base) {}

    // Adds bytes of the source from `offset` on. Throws Damage if it ends before.
    void AddPart(uint64_t size, uint64_t offset);

    // Adds `size` bytes of the word over and over. Throws Damage if it becomes too large.
    void AddFill(uint64_t size, uint32_t word);

    uint64_t size() const override { return size_; }
    void Read(uint64_t offset, void* to, size_t size) const override;

  private:
    struct Extent {
        uint64_t begin;
        uint64_t place;  // in the source, or the word
        bool is_fill;
    };

    void Add(uint64_t size, uint64_t place, bool is_fill);

    const Source& base_;
    std::vector<Extent> extents_;
    uint64_t size_ = 0;
};

// Sources in a row.
class JoinedSource : public Source {
  public:
    // The sources must live as long.
    explicit JoinedSource(std::vector<const Source*> parts);

    uint64_t size() const override { return ends_.empty() ? 0 : ends_.back(); }
    void Read(uint64_t offset, void* to, size_t size) const override;

  private:
    std::vector<const Source*> parts_;
    std::vector<uint64_t> ends_;
};

// Returns what the Android sparse image stands for, or null if the source is none. The source must
// live as long. Throws Damage if the image is damaged.
std::unique_ptr<Source> OpenSparse(const Source& source);

// Returns the image that several sparse images, in any order, hold a part of each. All must live as
// long, as must `joined`, which is them in a row. Throws Damage if one is damaged or no sparse
// image, or if two hold the same part.
std::unique_ptr<Source> JoinSparse(const std::vector<const Source*>& parts, const Source& joined);

}  // namespace images
