// Images in memory, read as a whole: what the contracts of sources and file systems promise is
// expected.

#pragma once

#include <string>

#include "file_system.h"

namespace fuzz {

// Ends the process, saying what it was, unless it holds.
void ExpectOfImage(bool holds, const char* what);

class Bytes : public images::Source {
  public:
    explicit Bytes(std::string bytes) : bytes_(std::move(bytes)) {}

    uint64_t size() const override { return bytes_.size(); }
    void Read(uint64_t offset, void* to, size_t size) const override;

  private:
    std::string bytes_;
};

// Looks at the first levels and nodes, and reads their content in several orders, which must be
// the same bytes. Damage is fine where it says in which inode it was met.
void WalkAll(const images::FileSystem& system);

// Reads a part of a source in several pieces, which must be the bytes of the whole.
void ReadInPieces(const images::Source& source, uint64_t offset, size_t size);

}  // namespace fuzz
