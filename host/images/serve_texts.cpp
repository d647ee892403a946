// Reads the texts in a zip.

#include <archive.h>
#include <archive_entry.h>
#include <errno.h>
#include <locale.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <android-base/strings.h>

#include "decoders.h"
#include "texts.h"

namespace images {

namespace {

bool Send(TextPacket kind, const char* bytes = nullptr, size_t size = 0) {
    char letter = static_cast<char>(kind);
    iovec parts[] = {{&letter, 1}, {const_cast<char*>(bytes), size}};
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    ssize_t sent;
    do {
        sent = sendmsg(kControl, &message, MSG_NOSIGNAL);
    } while (sent == -1 && errno == EINTR);
    return sent != -1;
}

// The zip as libarchive reads it.
struct ZipInput {
    off_t at = 0;
    off_t size = 0;
    char bytes[kTextPacketBytes];
};

la_ssize_t ReadZip(archive* reader, void* data, const void** bytes) {
    auto* zip = static_cast<ZipInput*>(data);
    const ssize_t size = pread(kFirstImage, zip->bytes, sizeof(zip->bytes), zip->at);
    if (size == -1) {
        archive_set_error(reader, errno, "it cannot be read");
        return ARCHIVE_FATAL;
    }
    zip->at += size;
    *bytes = zip->bytes;
    return size;
}

la_int64_t SeekZip(archive*, void* data, la_int64_t offset, int whence) {
    auto* zip = static_cast<ZipInput*>(data);
    zip->at = offset + (whence == SEEK_CUR ? zip->at : whence == SEEK_END ? zip->size : 0);
    return zip->at;
}

// Sends the content of the zip's texts. Returns false if the zip is damaged; the reader has the
// error.
bool SendTexts(archive* reader, ZipInput* zip) {
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
        if (!Send(TextPacket::kText)) return true;  // the client has what it wants
        char bytes[kTextPacketBytes - 1];
        la_ssize_t size;
        while ((size = archive_read_data(reader, bytes, sizeof(bytes))) > 0) {
            if (!Send(TextPacket::kBytes, bytes, size)) return true;
        }
        if (size < 0) return false;
    }
    return result == ARCHIVE_EOF;
}

}  // namespace

}  // namespace images

void extprop_serve_texts(const images::Descriptors& descriptors, char) {
    using namespace images;

    ZipInput zip;
    zip.size = lseek(descriptors.images[0], 0, SEEK_END);
    archive* reader = archive_read_new();
    setlocale(LC_CTYPE, "C.UTF-8");  // the names' encoding
    if (!Confine(descriptors)) _exit(kNotConfined);
    if (SendTexts(reader, &zip)) {
        Send(TextPacket::kEnd);
    } else {
        const char* why = archive_error_string(reader);
        Send(TextPacket::kWrong, why, why == nullptr ? 0 : strlen(why));
    }
    _exit(0);
}
