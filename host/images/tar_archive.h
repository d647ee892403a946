// Archives of tar, plain or packed whole.

#pragma once

#include <memory>

#include "archives.h"

namespace images {

// As OpenArchive. What is packed is unpacked to the spool up to what is read.
std::unique_ptr<Archive> OpenTar(const Source& source, Spool* spool);

}  // namespace images
