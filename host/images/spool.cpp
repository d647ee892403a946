#include "spool.h"

#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace images {

namespace {

bool IsZero(const char* bytes, size_t size) {
    return size == 0 || (bytes[0] == 0 && memcmp(bytes, bytes + 1, size - 1) == 0);
}

}  // namespace

uint64_t Spool::Add(const char* chunk) {
    if (chunks_ * kChunkSize >= limits::kSpool) {
        throw Damage("more than " + std::to_string(limits::kSpool >> 30) + " GiB to unpack");
    }
    const ssize_t written = TEMP_FAILURE_RETRY(
            pwrite(file_, chunk, kChunkSize, static_cast<off_t>(chunks_ * kChunkSize)));
    if (written != static_cast<ssize_t>(kChunkSize)) {
        throw Damage("no room to unpack it in the directory for temporary files");
    }
    return chunks_++;
}

void Spool::Allow(uint64_t unpacked_bytes, uint64_t packed_bytes) {
    packed_bytes = std::min(packed_bytes, limits::kImageBytes);
    most_ = std::min(unpacked_bytes + packed_bytes * limits::kUnpackedTimes, limits::kImageBytes);
}

void Spool::Count(size_t bytes) {
    constexpr uint64_t kStep = 4 << 20;
    const uint64_t before = unpacked_;
    unpacked_ += bytes;
    if (unpacked_ > most_) {
        throw Damage("more than " + std::to_string(most_ >> 20) +
                     " MiB to unpack, too much for the size of the file; unpack it first if you "
                     "trust it");
    }
    if (progress_ && unpacked_ / kStep != before / kStep) progress_(unpacked_);
}

void Spool::Read(uint64_t chunk, size_t offset, void* to, size_t size) const {
    const ssize_t got = TEMP_FAILURE_RETRY(
            pread(file_, to, size, static_cast<off_t>(chunk * kChunkSize + offset)));
    if (got != static_cast<ssize_t>(size)) throw Damage("what was unpacked cannot be read back");
}

void SpooledBytes::Read(uint64_t offset, void* to, size_t size) const {
    if (offset > size_ || size > size_ - offset) throw Damage("truncated");
    char* out = static_cast<char*>(to);
    while (size != 0) {
        const size_t begin = offset % Spool::kChunkSize;
        const size_t part = std::min(size, Spool::kChunkSize - begin);
        auto chunk = chunks_.find(offset / Spool::kChunkSize);
        if (chunk == chunks_.end()) {
            memset(out, 0, part);
        } else {
            spool_->Read(chunk->second, begin, out, part);
        }
        out += part;
        offset += part;
        size -= part;
    }
}

void SpooledBytes::Write(uint64_t offset, const char* from, size_t size) {
    if (offset > size_ || size > size_ - offset) throw Damage("more bytes than its size");
    spool_->Count(size);
    while (size != 0) {
        const size_t begin = offset % Spool::kChunkSize;
        const size_t part = std::min(size, Spool::kChunkSize - begin);
        const uint64_t place = offset / Spool::kChunkSize;
        auto known = chunks_.find(place);
        if (known != chunks_.end() || !IsZero(from, part)) {
            std::vector<char> chunk(Spool::kChunkSize);
            if (known != chunks_.end()) {
                spool_->Read(known->second, 0, chunk.data(), chunk.size());
            }
            memcpy(&chunk[begin], from, part);
            chunks_[place] = spool_->Add(chunk.data());
        }
        from += part;
        offset += part;
        size -= part;
    }
}

SpooledStream::SpooledStream(std::unique_ptr<Stream> stream, Spool* spool, uint64_t size)
        : stream_(std::move(stream)), spool_(spool), bytes_(spool, size) {}

void SpooledStream::TakeUpTo(uint64_t end) const {
    std::vector<char> chunk;
    while (taken_ < end && !ended_) {
        spool_->Count(0);  // once the limit was exceeded, the stream takes no more time
        // Whole chunks, so that each is written once.
        chunk.resize(std::min<uint64_t>(Spool::kChunkSize, bytes_.size() - taken_));
        size_t filled = 0;
        while (filled < chunk.size() && !ended_) {
            const size_t got = stream_->Next(&chunk[filled], chunk.size() - filled);
            filled += got;
            ended_ = got == 0;
        }
        bytes_.Write(taken_, chunk.data(), filled);
        taken_ += filled;
        if (taken_ > limits::kArchiveMember) {
            throw Damage("more than " + std::to_string(limits::kArchiveMember >> 30) + " GiB");
        }
    }
}

void SpooledStream::Read(uint64_t offset, void* to, size_t size) const {
    if (ReadUpTo(offset, to, size) != size) throw Damage("truncated");
}

size_t SpooledStream::ReadUpTo(uint64_t offset, void* to, size_t size) const {
    const uint64_t end = std::min(bytes_.size(), offset + size);
    TakeUpTo(end);
    if (offset >= taken_) return 0;
    const size_t part = static_cast<size_t>(std::min(end, taken_) - offset);
    bytes_.Read(offset, to, part);
    return part;
}

}  // namespace images
