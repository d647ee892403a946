// Bytes that come in their order only, such as a decompressor's, to be read at any place.

#pragma once

#include <functional>
#include <memory>
#include <unordered_map>

#include "../budget.h"
#include "source.h"

namespace images {

// Bytes in their order.
class Stream {
  public:
    virtual ~Stream() = default;

    // Puts up to `size` bytes into `to` and returns how many, 0 at the end. Throws Damage.
    virtual size_t Next(char* to, size_t size) = 0;
};

// A temporary file without a name for what several streams bring, in chunks. Chunks of zeros take
// no room. The reader of an image has one, made before it gave up everything else.
class Spool {
  public:
    static constexpr size_t kChunkSize = 64 * 1024;

    // `file` is open for reading and writing, and empty; -1 for none. `progress` is called now and
    // then while something is unpacked, and may throw Damage.
    explicit Spool(int file, std::function<void(uint64_t unpacked_bytes)> progress = nullptr)
            : file_(file), progress_(std::move(progress)) {}

    // Tells what is packed, which decides how much may come of it.
    void Allow(uint64_t unpacked_bytes, uint64_t packed_bytes);

    // Counts what was unpacked, zeros too, or compared with a checksum. Throws Damage if that is
    // more than is allowed.
    void Count(size_t bytes);

    // Keeps a chunk and returns its number. Throws Damage where there is no room.
    uint64_t Add(const char* chunk);

    // Puts `size` bytes of the chunk, from `offset` on, into `to`. Throws Damage.
    void Read(uint64_t chunk, size_t offset, void* to, size_t size) const;

  private:
    int file_;
    std::function<void(uint64_t)> progress_;
    uint64_t chunks_ = 0;
    uint64_t unpacked_ = 0;
    uint64_t most_ = limits::kUnpacked;
};

// Bytes that are written once, at any place, and then read; what was not written is zeros.
class SpooledBytes : public Source {
  public:
    SpooledBytes(Spool* spool, uint64_t size) : spool_(spool), size_(size) {}

    uint64_t size() const override { return size_; }
    void Read(uint64_t offset, void* to, size_t size) const override;

    // Writes bytes within the size. A chunk that is touched twice takes room twice.
    void Write(uint64_t offset, const char* from, size_t size);

  private:
    Spool* spool_;
    uint64_t size_;
    std::unordered_map<uint64_t, uint64_t> chunks_;  // by their place, those that are not zero
};

// What a stream brings, taken from it only as far as it is read.
class SpooledStream : public Source {
  public:
    // `size` is the stream's or, where it is not known before its end, more than that.
    SpooledStream(std::unique_ptr<Stream> stream, Spool* spool, uint64_t size);

    uint64_t size() const override { return bytes_.size(); }
    void Read(uint64_t offset, void* to, size_t size) const override;
    size_t ReadUpTo(uint64_t offset, void* to, size_t size) const override;

  private:
    // Takes what lies before `end`, as far as there is so much.
    void TakeUpTo(uint64_t end) const;

    std::unique_ptr<Stream> stream_;
    mutable SpooledBytes bytes_;
    mutable uint64_t taken_ = 0;
    mutable bool ended_ = false;
};

}  // namespace images
