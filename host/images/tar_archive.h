// Tar archives.

#pragma once

#include <memory>

#include "archives.h"

namespace images {

// As OpenArchive, for tar archives without compression. Members are read in place, sparse ones by
// way of the spool.
std::unique_ptr<Archive> OpenTar(const Source& source, Spool* spool);

}  // namespace images
