#include "boot/message.h"

#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <stdint.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <istream>
#include <iterator>
#include <ostream>
#include <stdexcept>
#include <streambuf>

#include <android-base/cmsg.h>
#include <android-base/logging.h>
#include <android-base/unique_fd.h>
#include <nlohmann/json.hpp>

#include "boot/delta_fields.h"
#include "boot/ending.h"
#include "boot/report_fields.h"
#include "budget.h"
#include "led_calls.h"
#include "platform.h"

namespace extprop {

template <typename Fields>
void Visit(Fields& fields, LinesRead& read) {
    fields("load", read.load)("lines", read.lines);
}

template <typename Fields>
void Visit(Fields& fields, StepRequest& request) {
    fields("index", request.index);
}

namespace {

using std::chrono::steady_clock;

// A document is sent in chunks, so that its encoded form is never in memory as a whole. Each chunk
// follows its size; the size of the last one has a mark.
using ChunkHead = uint32_t;
constexpr ChunkHead kLastChunk = ChunkHead{1} << 31;
constexpr size_t kChunkSize = 16 * 1024;

class ChunkWriter : public std::streambuf {
  public:
    // Adds the bytes that it sends to `*sent`.
    ChunkWriter(int fd, size_t* sent) : fd_(fd), sent_(sent) { Restart(); }

    // Sends the last chunk.
    bool End() { return Send(kLastChunk); }

  protected:
    int_type overflow(int_type next) override {
        if (!Send(0)) return traits_type::eof();
        Restart();
        return sputc(traits_type::to_char_type(next));
    }

  private:
    void Restart() { setp(buffer_ + sizeof(ChunkHead), std::end(buffer_)); }

    bool Send(ChunkHead mark) {
        const ChunkHead head = static_cast<ChunkHead>(pptr() - pbase()) | mark;
        memcpy(buffer_, &head, sizeof(head));
        if (sent_ != nullptr) *sent_ += pptr() - pbase();
        // The reader may have closed the channel.
        for (const char* next = buffer_; next < pptr();) {
            const ssize_t sent = TEMP_FAILURE_RETRY(send(fd_, next, pptr() - next, MSG_NOSIGNAL));
            if (sent <= 0) return false;
            next += sent;
        }
        return true;
    }

    int fd_;
    size_t* sent_;
    char buffer_[sizeof(ChunkHead) + kChunkSize];
};

class ChunkReader : public std::streambuf {
  public:
    // Reads until the deadline. Subtracts the bytes that it reads from `*left`, and ends before
    // they exceed it.
    ChunkReader(int fd, steady_clock::time_point deadline, size_t* left)
            : fd_(fd), deadline_(deadline), left_(left) {}

    // Returns whether it has ended because the deadline passed.
    bool is_late() const { return is_late_; }

  protected:
    int_type underflow() override {
        ChunkHead head = 0;
        if (is_last_ || !ReadWhole(&head, sizeof(head))) return traits_type::eof();
        is_last_ = (head & kLastChunk) != 0;
        const size_t size = head & ~kLastChunk;
        if (size == 0 || size > kChunkSize || size > *left_ || !ReadWhole(buffer_, size)) {
            return traits_type::eof();
        }
        *left_ -= size;
        setg(buffer_, buffer_, buffer_ + size);
        return traits_type::to_int_type(*gptr());
    }

  private:
    bool ReadWhole(void* bytes, size_t size) {
        for (char* next = static_cast<char*>(bytes); size > 0;) {
            is_late_ = !IsReady();
            const ssize_t got = is_late_ ? 0 : TEMP_FAILURE_RETRY(read(fd_, next, size));
            if (got <= 0) return false;
            next += got;
            size -= got;
        }
        return true;
    }

    // Waits for bytes or the end. Returns false if there are none by the deadline.
    bool IsReady() const {
        using namespace std::chrono;
        const auto time = duration_cast<milliseconds>(deadline_ - steady_clock::now());
        const int wait = static_cast<int>(std::clamp<int64_t>(time.count(), 0, INT_MAX));
        pollfd ready{fd_, POLLIN, 0};
        return TEMP_FAILURE_RETRY(poll(&ready, 1, wait)) == 1;
    }

    int fd_;
    steady_clock::time_point deadline_;
    size_t* left_;
    bool is_last_ = false;
    bool is_late_ = false;
    char buffer_[kChunkSize];
};

json DocumentOf(const Message& message) {
    const json body =
            std::visit(Overloaded{
                               [](const StepDone& done) -> json {
                                   return {Write(done.delta), done.performed, Write(done.record)};
                               },
                               [](const auto& kind) { return Write(kind); },
                       },
                       message);
    return {message.index(), body};
}

StepDone StepDoneIn(json& body) {
    StepDone done;
    Read(body.at(0), &done.delta);
    body.at(1).get_to(done.performed);
    Read(body.at(2), &done.record);
    return done;
}

Message MessageIn(json document) {
    json& body = document.at(1);
    Message message;
    switch (document.at(0).get<int>()) {
        case 0:
            Read(body, &message.emplace<StepRequest>());
            break;
        case 1:
            message = StepDoneIn(body);
            break;
        case 2:
            Read(body, &message.emplace<Event>());
            break;
        default:
            Read(body, &message.emplace<LinesRead>());
    }
    return message;
}

}  // namespace

// CBOR rather than text: property values are bytes, not always UTF-8.
bool SendDocument(int fd, const json& document, size_t* sent) {
    ChunkWriter chunks(fd, sent);
    std::ostream out(&chunks);
    json::to_cbor(document, out);
    return out.good() && chunks.End();
}

Received ReceiveDocument(int fd, steady_clock::time_point deadline, json* document, size_t* left) {
    size_t own = limits::kEvents;
    ChunkReader chunks(fd, deadline, left != nullptr ? left : &own);
    std::istream in(&chunks);
    *document = json::from_cbor(in, true, false);
    if (chunks.is_late()) return Received::kTimeOut;
    return document->is_discarded() ? Received::kEnd : Received::kMessage;
}

std::optional<json> AskInside(const sandbox::Sandbox& root, const std::function<json()>& question,
                              std::chrono::seconds limit) {
    android::base::unique_fd ours, theirs;
    if (!android::base::Socketpair(SOCK_STREAM | SOCK_CLOEXEC, &ours, &theirs)) {
        throw std::runtime_error(std::string("socketpair: ") + strerror(errno));
    }
    sandbox::Process process = root.Start([&] {
        ours.reset();
        platform::SetSystemCalls(sandbox::LeadCall);
        android::base::SetLogger([](auto&&...) {});
        EndAtMemoryLimit();
        return SendDocument(theirs.get(), question()) ? 0 : 1;
    });
    theirs.reset();
    json answer;
    const auto deadline = steady_clock::now() + limit;
    const Received received = ReceiveDocument(ours.get(), deadline, &answer);
    root.CheckImages();
    if (received != Received::kMessage) return std::nullopt;
    return answer;
}

bool SendMessage(int fd, Message message, size_t* sent) {
    const json document = DocumentOf(message);
    message = StepRequest();  // frees the message, which may be large
    return SendDocument(fd, document, sent);
}

Received ReceiveMessage(int fd, steady_clock::time_point deadline, Message* message, size_t* left) {
    json document;
    const Received received = ReceiveDocument(fd, deadline, &document, left);
    if (received == Received::kMessage) *message = MessageIn(std::move(document));
    return received;
}

}  // namespace extprop
