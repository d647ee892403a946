// Zip archives.

#pragma once

#include <memory>

#include "archives.h"

namespace images {

// As OpenArchive, for zip archives. A member of up to 1 MiB is read whole into memory; of larger
// ones a stored one is read in place, a packed one unpacked to the spool as far as it is read.
std::unique_ptr<Archive> OpenZip(const Source& source, Spool* spool);

}  // namespace images
