// Sources: a file, and combinations of other sources. None of them copies or caches content.

#pragma once

#include <stdint.h>

#include <memory>
#include <vector>

#include "source.h"

namespace images {

// The bytes of an open regular file or block device. Reading throws Damage also once more than
// limits::kImageBytes were read in all.
class FileSource : public Source {
  public:
    // The caller keeps the descriptor open as long as this, and closes it. Throws Damage if it
    // cannot seek, such as a pipe's.
    explicit FileSource(int fd);

    uint64_t size() const override { return size_; }
    void Read(uint64_t offset, void* to, size_t size) const override;

  private:
    int fd_;
    uint64_t size_;
    mutable uint64_t read_ = 0;
};

// A sequence of parts of another source and of repeated words.
class ExtentSource : public Source {
  public:
    // `base` must outlive this.
    explicit ExtentSource(const Source& base) : base_(base) {}

    // Appends `size` bytes of the source from `offset` on. Throws Damage if the source has fewer,
    // or the whole becomes larger than any file.
    void AddPart(uint64_t size, uint64_t offset);

    // Appends `size` bytes of the repeated word, lowest byte first. Throws Damage if the whole
    // becomes larger than any file.
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

// Several sources, one after the other.
class JoinedSource : public Source {
  public:
    // The sources must outlive this. Throws Damage if the whole is larger than any file.
    explicit JoinedSource(std::vector<const Source*> parts);

    uint64_t size() const override { return ends_.empty() ? 0 : ends_.back(); }
    void Read(uint64_t offset, void* to, size_t size) const override;

  private:
    std::vector<const Source*> parts_;
    std::vector<uint64_t> ends_;
};

// Returns the image that an Android sparse image stands for, or null if the source is none or the
// image is empty. The source must outlive it. Throws Damage if the sparse image is damaged or
// exceeds a limit.
std::unique_ptr<Source> OpenSparse(const Source& source);

// Returns the image of which each of several sparse images, in any order, holds a part. The parts
// and `joined`, which must be the parts in the same order, must outlive it. Bytes that no part has
// are zero. Throws Damage if a part is damaged, empty or no sparse image, or if two parts overlap.
std::unique_ptr<Source> JoinSparse(const std::vector<const Source*>& parts, const Source& joined);

}  // namespace images
