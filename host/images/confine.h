// How a process gives up its access to everything but the files that it reads, a temporary file and
// a socket.

#pragma once

#include <stdint.h>

#include <vector>

#include "../budget.h"

namespace images {

// The descriptors that a confined process keeps, and its limits.
struct Descriptors {
    std::vector<int> images;                  // at least one
    int control;                              // a socket
    int spool;                                // an unnamed temporary file, or -1
    uint64_t memory = limits::kReaderMemory;  // more than it has already, in bytes
    uint64_t unpacked = limits::kUnpacked;    // bytes that it may unpack from an image of any size
};

// The numbers of these descriptors once the process is confined; those of the images follow
// kFirstImage.
inline constexpr int kControl = 0;
inline constexpr int kSpoolFile = 3;
inline constexpr int kFirstImage = 4;

// Confines the calling process, which has one thread, for good: moves it to a session of its own,
// gives signals their default action and the descriptors their numbers, closes all others, sets the
// limits and installs a system call filter. From then on it can read the images, read and write the
// temporary file, and use sockets received over the control socket; it can reach no other file, no
// path, no process and no network. Standard error becomes a copy of the first image, which cannot
// be written. Returns false with errno set on failure; the process is then fit for nothing but its
// end.
bool Confine(const Descriptors& descriptors);

}  // namespace images
