// A process that reads one image file and has given up everything else: a filter of the kernel
// leaves it that file, one for what is unpacked, its memory and its sockets. Whoever wants
// something of the image asks it, from any process that comes from the one that started it.

#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>

#include "confine.h"
#include "file_system.h"

namespace images {

// What a file holds, once it is unpacked and no Android sparse image any more.
enum class Kind : uint32_t { kFileSystem, kSuper, kPayload, kArchive, kUnknown };

struct Contained {
    Kind kind;
    size_t first_volume;  // volumes of all that a reader has looked at are numbered in a row
    // One without a name, or in the order of the file's own table; any bytes may be a name.
    std::vector<Volume> volumes;
};

// Answers whoever asks over the control socket, as long as anybody can. Never returns.
using ServeFunction = void(const Descriptors& descriptors, char slot);
ServeFunction Serve;

class Reader {
  public:
    // Starts the process over an open regular file or block device, or the parts of a split sparse
    // image. `slot`, 'a' or 'b', chooses the metadata of a super image, `readers` is the number of
    // those that share what a device may take, and `serve` is what the process does. Throws Damage
    // if the file holds nothing that can be read, std::runtime_error if there can be no such
    // process.
    Reader(std::vector<android::base::unique_fd> parts, char slot, size_t readers = 1,
           ServeFunction* serve = Serve);
    ~Reader();
    Reader& operator=(Reader&&) = delete;

    // What the file holds.
    const Contained& contained() const;

    // Returns what a file of the archive in the volume holds, or several that are the parts of a
    // split sparse image. Throws Damage as above.
    Contained LookInside(size_t volume, const std::vector<uint64_t>& files) const;

    // Returns the file system in the volume, or the archive's files: its functions ask the reader.
    // It may be used in every process that is forked from this one, in several threads, and where
    // calls are led. Throws Damage if it is none that can be read.
    std::unique_ptr<FileSystem> Open(size_t volume) const;

    // Unpacks all that the volume's file is packed in, so that nobody waits for it later. Throws
    // Damage.
    void Unpack(size_t volume) const;

    // While something is unpacked, `show` is called now and then in the process that started the
    // reader, and with 0 after that.
    static void ShowProgress(void (*show)(uint64_t unpacked_bytes));

  private:
    class Process;
    std::shared_ptr<Process> process_;
};

}  // namespace images
