// Archives of zip.

#pragma once

#include <memory>

#include "archives.h"

namespace images {

// As OpenArchive. Members that are stored are read where they lie; packed ones are unpacked to the
// spool up to what is read.
std::unique_ptr<Archive> OpenZip(const Source& source, Spool* spool);

}  // namespace images
