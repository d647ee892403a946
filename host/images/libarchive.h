// A reader of archives by way of libarchive, which reads a source.

#pragma once

#include <archive.h>
#include <archive_entry.h>

#include <string>
#include <vector>

#include "source.h"

namespace images {

// Throws std::bad_alloc, not Damage, where libarchive is out of memory.
class ArchiveReader {
  public:
    // Reads the source from `offset` on, in bytes. The source must outlive this.
    ArchiveReader(const Source& source, uint64_t offset);
    ~ArchiveReader();
    ArchiveReader& operator=(ArchiveReader&&) = delete;

    // Enables a format or a compression by a function archive_read_support_*, before Open(). Throws
    // Damage if the library was built without it.
    void Support(int (*support)(archive*));

    // Begins to read. To be called once, after Support() and before all that follows. Throws Damage
    // if the source cannot be read or has no format that is enabled.
    void Open();

    // Returns how many layers of compression the source has.
    int packings() const;

    // Goes to the next member and returns it, valid until the next call; null at the end. Throws
    // Damage if what follows is damaged.
    archive_entry* Next();

    // Return the offsets in a source without compression, in bytes, of the header of the member
    // that Next() returned, and of its data if they are stored in one piece. Call data() before
    // Read().
    uint64_t header() const;
    uint64_t data() const;

    // Copies the next bytes of the member, at most `size`, to `to`. Returns how many, 0 at the end.
    // Throws Damage.
    size_t Read(char* to, size_t size);

  private:
    static la_ssize_t ReadSource(archive*, void* self, const void** bytes);
    static la_int64_t SkipSource(archive*, void* self, la_int64_t size);

    [[noreturn]] void Fail() const;

    const Source& source_;
    const uint64_t begin_;
    uint64_t at_;
    std::vector<char> buffer_;
    std::string error_;  // why the source could not be read
    archive* archive_;
};

}  // namespace images
