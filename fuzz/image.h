// Images in memory, with the contracts of Source and FileSystem checked: the process aborts, with a
// message, where one does not hold.

#pragma once

#include <string>
#include <utility>

#include "file_system.h"

namespace fuzz {

// Aborts the process with a message that names `what`, unless it `holds`.
void ExpectOfImage(bool holds, const char* what);

class Bytes : public images::Source {
  public:
    explicit Bytes(std::string bytes) : bytes_(std::move(bytes)) {}

    uint64_t size() const override { return bytes_.size(); }
    void Read(uint64_t offset, void* to, size_t size) const override;

  private:
    std::string bytes_;
};

// Looks at the first levels and nodes, and reads the first bytes of their content in several
// orders, which must give the same bytes. Damage is allowed; that of content must name the inode or
// member.
void WalkAll(const images::FileSystem& system);

// Reads a part of a source at once and in several pieces, which must give the same bytes. Throws
// Damage if the part cannot be read.
void ReadInPieces(const images::Source& source, uint64_t offset, size_t size);

}  // namespace fuzz
