// libarchive over a source.

#pragma once

#include <archive.h>
#include <archive_entry.h>

#include <string>
#include <vector>

#include "source.h"

namespace images {

class ArchiveReader {
  public:
    // Reads from `offset` of the source, which must live as long.
    ArchiveReader(const Source& source, uint64_t offset);
    ~ArchiveReader();
    ArchiveReader& operator=(ArchiveReader&&) = delete;

    // Allows a format or a compression. Throws Damage if the library was built without it.
    void Support(int (*support)(archive*));

    // Begins, once all is allowed. Throws Damage.
    void Open();

    // How often what was opened is packed.
    int packings() const;

    // Goes to the next member and returns it, null at the end. Throws Damage.
    archive_entry* Next();

    // Where the member's header begins, and the data if it lies there in one piece.
    uint64_t header() const;
    uint64_t data() const;

    // Puts up to `size` bytes of the member into `to` and returns how many, 0 at the end. Throws
    // Damage.
    size_t Read(char* to, size_t size);

  private:
    static la_ssize_t ReadSource(archive*, void* self, const void** bytes);
    static la_int64_t SkipSource(archive*, void* self, la_int64_t size);

    [[noreturn]] void Fail() const;

    const Source& source_;
    const uint64_t begin_;
    uint64_t at_;
    std::vector<char> buffer_;
    std::string error_;  // of the source
    archive* archive_;
};

}  // namespace images
