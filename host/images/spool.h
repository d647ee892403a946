// Random access to bytes that can only be produced in order, such as those of a decompressor.

#pragma once

#include <functional>
#include <memory>
#include <unordered_map>
#include <utility>

#include "../budget.h"
#include "source.h"

namespace images {

// Bytes that can be read in order only.
class Stream {
  public:
    virtual ~Stream() = default;

    // Copies the next bytes, at most `size`, to `to`. Returns how many; 0 at the end. Throws Damage
    // if they cannot be produced.
    virtual size_t Next(char* to, size_t size) = 0;
};

// An unnamed temporary file that stores, in chunks, the bytes of several streams. Each reader
// process has one, which was created before the process was confined.
class Spool {
  public:
    static constexpr size_t kChunkSize = 64 * 1024;

    // `file` is open for reading and writing, and empty; the caller keeps and closes it. If it is
    // not open, such as -1, Add() throws. `progress` is called once per 4 MiB that are unpacked,
    // and may throw Damage.
    explicit Spool(int file, std::function<void(uint64_t unpacked_bytes)> progress = nullptr)
            : file_(file), progress_(std::move(progress)) {}

    // Sets the limit of Count(), which is limits::kUnpacked until then: `unpacked_bytes` plus
    // limits::kUnpackedTimes as much as `packed_bytes`, the size of the image, but no more than
    // limits::kImageBytes.
    void Allow(uint64_t unpacked_bytes, uint64_t packed_bytes);

    // Counts bytes that were unpacked, zeros too, or were compared with a checksum. Throws Damage
    // when they exceed the limit.
    void Count(size_t bytes);

    // Stores kChunkSize bytes and returns the chunk's number. Throws Damage if there is no room, in
    // the file system or within limits::kSpool.
    uint64_t Add(const char* chunk);

    // Copies `size` bytes of the chunk, from `offset` on, to `to`; they must lie in a chunk that
    // Add() returned. Throws Damage if they cannot be read back.
    void Read(uint64_t chunk, size_t offset, void* to, size_t size) const;

  private:
    int file_;
    std::function<void(uint64_t)> progress_;
    uint64_t chunks_ = 0;
    uint64_t unpacked_ = 0;
    uint64_t most_ = limits::kUnpacked;
};

// Bytes that are written once, in any order, and then read. Bytes that were not written are zero;
// chunks of zeros take no room in the spool.
class SpooledBytes : public Source {
  public:
    // `size` is in bytes. The spool must outlive this.
    SpooledBytes(Spool* spool, uint64_t size) : spool_(spool), size_(size) {}

    uint64_t size() const override { return size_; }
    void Read(uint64_t offset, void* to, size_t size) const override;

    // Writes `size` bytes at `offset`. A chunk takes room in the spool again with each write to it.
    // Throws Damage if the bytes do not lie within size(), or as Spool::Count() and Add() do.
    void Write(uint64_t offset, const char* from, size_t size);

  private:
    Spool* spool_;
    uint64_t size_;
    std::unordered_map<uint64_t, uint64_t> chunks_;  // by their place; those of zeros are missing
};

// The bytes of a stream, which is read only as far as they are asked for. Reading throws Damage
// also as the stream and the spool do, and once more than limits::kArchiveMember bytes were
// unpacked.
class SpooledStream : public Source {
  public:
    // `size` is the number of the stream's bytes or, if that is unknown, a larger one: bytes after
    // the stream's end do not exist for Read() and ReadUpTo(). The spool must outlive this.
    SpooledStream(std::unique_ptr<Stream> stream, Spool* spool, uint64_t size);

    uint64_t size() const override { return bytes_.size(); }
    void Read(uint64_t offset, void* to, size_t size) const override;
    size_t ReadUpTo(uint64_t offset, void* to, size_t size) const override;

  private:
    // Reads the stream up to `end`, or to its own end.
    void TakeUpTo(uint64_t end) const;

    std::unique_ptr<Stream> stream_;
    Spool* spool_;
    mutable SpooledBytes bytes_;
    mutable uint64_t taken_ = 0;
    mutable bool ended_ = false;
};

}  // namespace images
