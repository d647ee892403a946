// How a process gives up everything but one open file, a socket, memory and time.

#pragma once

namespace images {

// The descriptors of a confined process.
inline constexpr int kImage = 0;
inline constexpr int kControl = 1;

// Gives the two descriptors their numbers, closes all others and gives up what else there is, for
// good: the file can be read, sockets that come over the other one can be used, and no process, no
// path, no network and no other file be reached. Returns false with errno.
bool Confine(int image, int control);

}  // namespace images
