// Tar archives.

#pragma once

#include <memory>

#include "archives.h"

namespace images {

// As OpenArchive.
std::unique_ptr<Archive> OpenTar(const Source& source, Spool* spool);

}  // namespace images
