// What reads packed bytes is a shared library of its own. The libraries that it needs take longer
// to load than a boot takes, and only confined processes have their code in memory.

#pragma once

#include <string>

#include "confine.h"

namespace images {

// What a process does that reads for others: it confines itself and serves its clients over the
// control socket. `slot`, 'a' or 'b', chooses the metadata of a super image. Never returns.
using ServeFunction = void(const Descriptors& descriptors, char slot);

// Load the library in the calling process and run it. The process ends with one of the statuses
// below if it cannot serve, with 0 after its last client, and by a signal at a time limit or in a
// crash.
ServeFunction ServeImage;  // answers the requests of protocol.h
ServeFunction ServeTexts;  // sends the packets of texts.h; ignores the slot

// Exit statuses of a process that did not begin to serve.
inline constexpr int kNotConfined = 126;
inline constexpr int kNotLoaded = 127;

// Returns why a process that ended with this exit status did not begin to serve, or "" if it did.
std::string WhyNotServed(int exit_status);

}  // namespace images

// The functions that the library exports.
extern "C" {
images::ServeFunction extprop_serve_image;
images::ServeFunction extprop_serve_texts;
}
