// A worker process that reads one image file, since images are untrusted. A system call filter
// leaves it that file, a temporary file for unpacked bytes, its memory and its sockets. The process
// that started it, and all processes forked from that one, read the image by requests to it.

#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>

#include "decoders.h"
#include "file_system.h"

namespace images {

// The kind of a file's content, without the sparse image format or compression around it.
enum class Kind : uint32_t { kFileSystem, kSuper, kPayload, kArchive, kUnknown };

struct Contained {
    Kind kind;
    size_t first_volume;  // volumes of all files that a reader has opened are numbered in a row
    // One without a name or, of kSuper and kPayload, any number in the order of the file's own
    // table. A name may be any bytes.
    std::vector<Volume> volumes;
};

// A volume's number is its index in Contained::volumes, plus first_volume there. A request to the
// worker throws Damage if there is no such volume, or if the image is damaged or exceeds a limit.
// So does every request once the worker has ended or not answered in time. The worker ends when
// this and the file systems from Open() are gone in the process that started it.
class Reader {
  public:
    // Starts the worker process. `parts` is an open regular file or block device, or the parts of a
    // split sparse image, up to kMostParts. `slot`, 'a' or 'b', chooses the metadata of a super
    // image. `readers`, at least 1, is the number of readers that share the limits of one device.
    // Throws Damage as above and for no part or too many; std::runtime_error if the process does
    // not begin to serve.
    Reader(std::vector<android::base::unique_fd> parts, char slot, size_t readers = 1,
           ServeFunction* serve = ServeImage);
    ~Reader();
    Reader& operator=(Reader&&) = delete;

    // What the file holds.
    const Contained& contained() const;

    // Returns what a file of the archive in the volume holds; `files` are nodes of the archive.
    // Several files, up to kMostParts, are the parts of one split sparse image. Throws Damage also
    // for no file or too many, and if the volume is no archive, or one of the files no regular file
    // of it.
    Contained OpenInside(size_t volume, const std::vector<uint64_t>& files) const;

    // Returns the file system in the volume, or the archive; its functions send requests to the
    // worker process. It may be used in processes forked from this one, in several threads, and
    // under the sandbox's redirection of system calls. A partition of a payload is unpacked now.
    // Throws Damage also if the volume holds neither.
    std::unique_ptr<FileSystem> Open(size_t volume) const;

    // Decompresses the file in which the volume lies, so that no later request waits for it.
    void Unpack(size_t volume) const;

    // Sets a function that is called now and then while a reader unpacks, in the process that
    // started it and on the thread that waits, with the number of bytes so far, and with 0 at the
    // end. Null for none.
    static void ShowProgress(void (*show)(uint64_t unpacked_bytes));

  private:
    class Process;
    std::shared_ptr<Process> process_;
};

}  // namespace images
