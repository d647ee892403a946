// The protocol between a reader process and its clients. Each request and each reply is one packet
// of a SOCK_SEQPACKET socket; for an answer that does not fit, the client asks again with another
// offset. Both sides come from the same build, so that structures are sent as they are. A request
// that cannot be met gives kDamage; a packet shorter than a Request ends the connection.

#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string>
#include <string_view>

#include "file_system.h"

namespace images {

enum class Question : uint32_t {
    kContents,  // what the whole image holds
    kInside,    // what files of an archive hold; their nodes follow the request
    kUnpack,    // an empty answer, once the file of the volume is unpacked completely
    kRoot,      // the root directory's node
    kLook,
    kList,
    kRead,  // a file's content
    kTarget,
};

struct Request {
    Question question;
    uint32_t volume;
    uint64_t node;
    uint64_t offset;  // in the answer, in bytes
    uint64_t size;    // of the wanted part of the answer, at most, in bytes
};

enum class Outcome : uint32_t {
    kDone,
    kDamage,
    kWorking,  // the answer follows in a later reply; the size is what is unpacked so far, in bytes
};

// The start of a reply; bytes of the answer follow, or the text of the Damage.
struct ReplyHeader {
    Outcome outcome;
    uint32_t reserved;
    uint64_t size;  // of the whole answer, in bytes
};

constexpr size_t kMostParts = 64;  // of a split image

// Throws Damage if no image has this number of parts.
inline void CheckParts(size_t count) {
    if (count == 0) throw Damage("an image without a file");
    if (count > kMostParts) {
        throw Damage("an image in more than " + std::to_string(kMostParts) + " parts");
    }
}

constexpr char kInvalidAnswer[] = "the process that reads it gave an invalid answer";

constexpr size_t kPacketBytes = 64 * 1024;  // of an answer in one packet

// Appends to an answer.
inline void PutNumber(std::string* answer, uint64_t number) {
    answer->append(reinterpret_cast<const char*>(&number), sizeof(number));
}
inline void PutText(std::string* answer, std::string_view text) {
    PutNumber(answer, text.size());
    answer->append(text);
}

// Parses an answer, which must outlive it. All functions throw Damage if it ends too early.
class Parser {
  public:
    explicit Parser(std::string_view answer) : rest_(answer) {}

    uint64_t Number() {
        uint64_t number;
        memcpy(&number, Take(sizeof(number)).data(), sizeof(number));
        return number;
    }
    std::string Text() { return std::string(Take(Number())); }
    bool is_done() const { return rest_.empty(); }

  private:
    std::string_view Take(uint64_t size) {
        if (size > rest_.size()) throw Damage(kInvalidAnswer);
        const std::string_view taken = rest_.substr(0, size);
        rest_.remove_prefix(size);
        return taken;
    }

    std::string_view rest_;
};

}  // namespace images
