#include "device/phone_zip.h"

#include <archive.h>
#include <archive_entry.h>
#include <errno.h>
#include <locale.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "../../budget.h"
#include "../../filter.h"
#include "confine.h"
#include "device/phone.h"
#include "input_error.h"

namespace extprop {

namespace {

using android::base::unique_fd;

// The reading process sends packets that begin with one of these letters.
enum Packet : char {
    kText = 't',   // another text begins
    kBytes = 'b',  // bytes of the text follow
    kWrong = 'w',  // the zip's fault follows
    kEnd = 'e',
};

constexpr size_t kPacketSize = 64 * 1024;

// ---- The reading process, which has only the file and a socket.

bool Send(Packet kind, const char* bytes = nullptr, size_t size = 0) {
    char letter = kind;
    iovec parts[] = {{&letter, 1}, {const_cast<char*>(bytes), size}};
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    ssize_t sent;
    do {
        sent = sendmsg(images::kControl, &message, MSG_NOSIGNAL);
    } while (sent == -1 && errno == EINTR);
    return sent != -1;
}

// The zip as libarchive reads it.
struct Zip {
    off_t at = 0;
    off_t size = 0;
    char bytes[kPacketSize];
};

la_ssize_t ReadZip(archive* reader, void* data, const void** bytes) {
    auto* zip = static_cast<Zip*>(data);
    const ssize_t size = pread(images::kFirstImage, zip->bytes, sizeof(zip->bytes), zip->at);
    if (size == -1) {
        archive_set_error(reader, errno, "it cannot be read");
        return ARCHIVE_FATAL;
    }
    zip->at += size;
    *bytes = zip->bytes;
    return size;
}

la_int64_t SeekZip(archive*, void* data, la_int64_t offset, int whence) {
    auto* zip = static_cast<Zip*>(data);
    zip->at = offset + (whence == SEEK_CUR ? zip->at : whence == SEEK_END ? zip->size : 0);
    return zip->at;
}

// Sends the content of the zip's texts. Returns false if the zip is damaged; the reader has the
// error.
bool SendTexts(archive* reader, Zip* zip) {
    archive_read_support_format_zip(reader);
    archive_read_set_callback_data(reader, zip);
    archive_read_set_read_callback(reader, ReadZip);
    archive_read_set_seek_callback(reader, SeekZip);
    if (archive_read_open1(reader) != ARCHIVE_OK) return false;
    archive_entry* entry = nullptr;
    int result;
    // A warning is about a name or time, which does not matter here.
    while ((result = archive_read_next_header(reader, &entry)) == ARCHIVE_OK ||
           result == ARCHIVE_WARN) {
        const char* path = archive_entry_pathname(entry);
        if (path == nullptr || !android::base::EndsWith(path, ".txt")) continue;
        if (!Send(kText)) return true;  // the client has what it wants
        char bytes[kPacketSize - 1];
        la_ssize_t size;
        while ((size = archive_read_data(reader, bytes, sizeof(bytes))) > 0) {
            if (!Send(kBytes, bytes, size)) return true;
        }
        if (size < 0) return false;
    }
    return result == ARCHIVE_EOF;
}

[[noreturn]] void Serve(int file, int socket, off_t size) {
    Zip zip;
    zip.size = size;
    archive* reader = archive_read_new();
    setlocale(LC_CTYPE, "C.UTF-8");  // the names' encoding
    if (!images::Confine({{file}, socket, -1})) _exit(1);
    if (SendTexts(reader, &zip)) {
        Send(kEnd);
    } else {
        const char* why = archive_error_string(reader);
        Send(kWrong, why, why == nullptr ? 0 : strlen(why));
    }
    _exit(0);
}

// ---- The client.

[[noreturn]] void FailWithErrno(const std::string& name) {
    throw std::runtime_error(name + ": the zip cannot be read: " + strerror(errno));
}

// The reading process; it ends with this object.
class ZipReader {
  public:
    ZipReader(const std::string& name, const std::string& zip) {
        if (!filter::IsPossible()) {
            throw std::runtime_error(name + ": the zip cannot be read: " + filter::kNotPossible);
        }
        const unique_fd file(memfd_create("zip", MFD_CLOEXEC));
        int ends[2];
        if (!file.ok() || !android::base::WriteStringToFd(zip, file) ||
            socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
            FailWithErrno(name);
        }
        socket_.reset(ends[0]);
        const unique_fd theirs(ends[1]);
        pid_ = fork();
        if (pid_ == 0) Serve(file.get(), theirs.get(), static_cast<off_t>(zip.size()));
        if (pid_ == -1) FailWithErrno(name);
    }

    ~ZipReader() {
        kill(pid_, SIGKILL);
        TEMP_FAILURE_RETRY(waitpid(pid_, nullptr, 0));
    }

    ZipReader& operator=(ZipReader&&) = delete;

    // Returns the next packet, an empty one if the process is gone.
    std::string_view Receive() {
        const ssize_t size = TEMP_FAILURE_RETRY(recv(socket_.get(), packet_, sizeof(packet_), 0));
        return {packet_, static_cast<size_t>(std::max<ssize_t>(size, 0))};
    }

  private:
    unique_fd socket_;
    pid_t pid_ = -1;
    char packet_[kPacketSize];
};

[[noreturn]] void FailAsDamaged(const std::string& name, const std::string& why) {
    throw InputError(name + ": the zip is truncated, damaged or encrypted" +
                     (why.empty() ? "" : " (" + why + ")"));
}

}  // namespace

std::string UnpackBugReport(const std::string& name, const std::string& zip) {
    ZipReader reader(name, zip);
    size_t left = limits::kPhone;  // of all texts together
    std::string text;
    while (true) {
        std::string_view packet = reader.Receive();
        const char kind = packet.empty() ? '\0' : packet[0];
        packet.remove_prefix(packet.empty() ? 0 : 1);
        switch (kind) {
            case kBytes:
                if (packet.size() > left) {
                    throw InputError(name + ": more than " + std::to_string(limits::kPhone) +
                                     " bytes of text, which is the limit");
                }
                left -= packet.size();
                text += packet;
                break;
            case kText:
            case kEnd:
                if (FindSystemProperties(text) != std::string::npos) return text;
                text.clear();
                if (kind == kText) break;
                throw InputError(name +
                                 ": it looks like a zip, but no text in it has a bug "
                                 "report's section SYSTEM PROPERTIES");
            default:
                FailAsDamaged(name, std::string(packet));
        }
    }
}

}  // namespace extprop
