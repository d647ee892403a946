// What a reader is asked and answers. Each question and each answer is one packet of a socket; who
// wants more than fits asks again, from another offset on. All come from the same build.

#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string>
#include <string_view>
#include <vector>

#include "file_system.h"

namespace images {

enum class Question : uint32_t {
    kContents,  // of the whole image
    kInside,    // of files of an archive, whose nodes follow the request
    kUnpack,    // nothing, but all that a volume's file is packed in has been unpacked then
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
    uint64_t offset;  // in the answer
    uint64_t size;    // of the answer's part, at most
};

enum class Outcome : uint32_t {
    kDone,
    kDamage,
    kWorking,  // a reply comes later; the size is what was unpacked so far, in bytes
};

// What a packet starts with; bytes of the answer follow, or what the damage is.
struct ReplyHeader {
    Outcome outcome;
    uint32_t reserved;
    uint64_t size;  // of the whole answer
};

constexpr size_t kMostParts = 64;  // of a split image

constexpr size_t kPacketBytes = 64 * 1024;  // of an answer in one packet

// Appends to an answer.
inline void PutNumber(std::string* answer, uint64_t number) {
    answer->append(reinterpret_cast<const char*>(&number), sizeof(number));
}
inline void PutText(std::string* answer, std::string_view text) {
    PutNumber(answer, text.size());
    answer->append(text);
}

// Takes an answer apart. Throws Damage where it ends too early.
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
        if (size > rest_.size()) throw Damage("the process that reads it answers nonsense");
        const std::string_view taken = rest_.substr(0, size);
        rest_.remove_prefix(size);
        return taken;
    }

    std::string_view rest_;
};

// How Serve() ends if the process cannot be confined.
inline constexpr int kNotConfined = 126;

}  // namespace images
