// Zip archives.

#pragma once

#include <memory>

#include "archives.h"

namespace images {

// As OpenArchive. Stored members are read in place; packed ones are unpacked to the spool as far as
// they are read.
std::unique_ptr<Archive> OpenZip(const Source& source, Spool* spool);

}  // namespace images
