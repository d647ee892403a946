#include "libarchive.h"

#include <errno.h>

#include <algorithm>
#include <new>

namespace images {

namespace {

constexpr size_t kBufferSize = 64 * 1024;

}  // namespace

ArchiveReader::ArchiveReader(const Source& source, uint64_t offset)
        : source_(source),
          begin_(offset),
          at_(offset),
          buffer_(kBufferSize),
          archive_(archive_read_new()) {
    if (archive_ == nullptr) throw std::bad_alloc();
}

ArchiveReader::~ArchiveReader() {
    archive_read_free(archive_);
}

void ArchiveReader::Support(int (*support)(archive*)) {
    if (support(archive_) != ARCHIVE_OK) Fail();
}

void ArchiveReader::Open() {
    archive_read_set_callback_data(archive_, this);
    archive_read_set_read_callback(archive_, ReadSource);
    archive_read_set_skip_callback(archive_, SkipSource);
    if (archive_read_open1(archive_) != ARCHIVE_OK) Fail();
}

int ArchiveReader::packings() const {
    return archive_filter_count(archive_) - 1;  // the last filter is the source
}

archive_entry* ArchiveReader::Next() {
    archive_entry* entry = nullptr;
    const int result = archive_read_next_header(archive_, &entry);
    if (result == ARCHIVE_EOF) return nullptr;
    // Warnings are about the character set of names, which are taken as they are.
    if (result != ARCHIVE_OK && result != ARCHIVE_WARN) Fail();
    return entry;
}

uint64_t ArchiveReader::header() const {
    return begin_ + static_cast<uint64_t>(archive_read_header_position(archive_));
}

uint64_t ArchiveReader::data() const {
    return begin_ + static_cast<uint64_t>(archive_filter_bytes(archive_, 0));
}

size_t ArchiveReader::Read(char* to, size_t size) {
    const la_ssize_t got = archive_read_data(archive_, to, size);
    if (got < 0) Fail();
    return static_cast<size_t>(got);
}

la_ssize_t ArchiveReader::ReadSource(archive* archive, void* self, const void** bytes) {
    auto& reader = *static_cast<ArchiveReader*>(self);
    size_t size = 0;
    try {
        size = reader.source_.ReadUpTo(reader.at_, reader.buffer_.data(), reader.buffer_.size());
    } catch (const std::exception& error) {
        // The library is C code, which no exception must pass through.
        reader.error_ = error.what();
        archive_set_error(archive, ARCHIVE_FATAL, "cannot be read");
        return ARCHIVE_FATAL;
    }
    reader.at_ += size;
    *bytes = reader.buffer_.data();
    return static_cast<la_ssize_t>(size);
}

la_int64_t ArchiveReader::SkipSource(archive*, void* self, la_int64_t size) {
    auto& reader = *static_cast<ArchiveReader*>(self);
    const uint64_t left = reader.source_.size() - std::min(reader.at_, reader.source_.size());
    const uint64_t skipped = std::min<uint64_t>(left, std::max<la_int64_t>(size, 0));
    reader.at_ += skipped;
    return static_cast<la_int64_t>(skipped);
}

void ArchiveReader::Fail() const {
    if (!error_.empty()) throw Damage(error_);
    if (archive_errno(archive_) == ENOMEM) throw std::bad_alloc();
    const char* why = archive_error_string(archive_);
    throw Damage(why == nullptr ? "damaged" : why);
}

}  // namespace images
