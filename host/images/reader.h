// A process that reads one image file and has given up everything else: a filter of the kernel
// leaves it that descriptor, its memory and its sockets. Whoever wants something of the image asks
// it, from any process that comes from the one that started it.

#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>

#include "file_system.h"

namespace images {

// Answers whoever asks over the control socket, as long as anybody can. Never returns.
using ServeFunction = void(int image, int control, char slot);
ServeFunction Serve;

class Reader {
  public:
    // Starts the process over an open regular file or block device, which may be an Android sparse
    // image. `slot`, 'a' or 'b', chooses the metadata of a super image; `serve` is what the process
    // does. Throws Damage if the image cannot be used, std::runtime_error if there can be no such
    // process.
    Reader(android::base::unique_fd image, char slot, ServeFunction* serve = Serve);
    ~Reader();
    Reader& operator=(Reader&&) = delete;

    // In the order of the image's own table.
    const std::vector<Volume>& volumes() const;

    // Returns the file system in the volume: its functions ask the reader. It may be used in every
    // process that is forked from this one, in several threads, and where calls are led. Throws
    // Damage if it is none that can be read.
    std::unique_ptr<FileSystem> Open(size_t volume) const;

  private:
    class Process;
    std::shared_ptr<Process> process_;
};

}  // namespace images
