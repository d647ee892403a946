// How a process gives up everything but the files that it reads, a socket, memory and time.

#pragma once

#include <stdint.h>

#include <vector>

#include "../budget.h"

namespace images {

// What a confined process keeps.
struct Descriptors {
    std::vector<int> images;
    int control;                              // a socket
    int spool;                                // a temporary file without a name, or -1
    uint64_t memory = limits::kReaderMemory;  // beyond what it has already, in bytes
    uint64_t unpacked = limits::kUnpacked;    // at least, in bytes
};

// Their numbers from then on; the images are numbered from the first on.
inline constexpr int kControl = 0;
inline constexpr int kSpoolFile = 3;
inline constexpr int kFirstImage = 4;

// Gives the descriptors their numbers, closes all others and gives up what else there is, for good:
// the images can be read, the temporary file be read and written, sockets that come over the
// control socket be used, and no process, no path, no network and no other file be reached. Returns
// false with errno.
bool Confine(const Descriptors& descriptors);

}  // namespace images
