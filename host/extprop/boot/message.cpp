#include "boot/message.h"

#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <stdint.h>
#include <string.h>
#include <sys/socket.h>

#include <algorithm>
#include <iterator>
#include <ostream>
#include <stdexcept>
#include <streambuf>

#include <android-base/cmsg.h>
#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/unique_fd.h>

#include "output/json.h"

namespace extprop {

namespace {

// Writes to a file and counts, or only counts, so that what may be large is never held whole.
class Output : public std::streambuf {
  public:
    // Counts only if `fd` is negative.
    explicit Output(int fd) : fd_(fd) { setp(buffer_, std::end(buffer_)); }

    bool Flush() { return overflow(traits_type::eof()) != traits_type::eof(); }
    size_t size() const { return size_; }

  protected:
    int_type overflow(int_type next) override {
        const size_t count = pptr() - pbase();
        size_ += count;
        setp(buffer_, std::end(buffer_));
        if (fd_ >= 0 && !android::base::WriteFully(fd_, buffer_, count)) return traits_type::eof();
        if (next != traits_type::eof()) sputc(traits_type::to_char_type(next));
        return traits_type::not_eof(next);
    }

  private:
    int fd_;
    size_t size_ = 0;
    char buffer_[16 * 1024];
};

}  // namespace

// CBOR rather than text: property values are bytes, not always UTF-8. Its size goes first.
bool SendDocument(int fd, const json& document) {
    Output counter(-1);
    std::ostream counted(&counter);
    json::to_cbor(document, counted);
    counter.Flush();
    const uint32_t size = counter.size();
    Output output(fd);
    std::ostream out(&output);
    out.write(reinterpret_cast<const char*>(&size), sizeof(size));
    json::to_cbor(document, out);
    return out.good() && output.Flush();
}

Received ReceiveDocument(int fd, std::chrono::steady_clock::time_point deadline, json* document) {
    using namespace std::chrono;
    const auto left = duration_cast<milliseconds>(deadline - steady_clock::now());
    const int wait = static_cast<int>(std::clamp<int64_t>(left.count(), 0, INT_MAX));
    pollfd ready{fd, POLLIN, 0};
    if (TEMP_FAILURE_RETRY(poll(&ready, 1, wait)) != 1) return Received::kTimeOut;

    uint32_t size = 0;
    if (!android::base::ReadFully(fd, &size, sizeof(size))) return Received::kEnd;
    std::vector<uint8_t> body(size);
    if (!android::base::ReadFully(fd, body.data(), body.size())) return Received::kEnd;
    *document = json::from_cbor(body);
    return Received::kMessage;
}

std::optional<json> AskInside(const sandbox::Sandbox& root, const std::function<json()>& question,
                              std::chrono::seconds limit) {
    android::base::unique_fd ours, theirs;
    if (!android::base::Socketpair(SOCK_STREAM | SOCK_CLOEXEC, &ours, &theirs)) {
        throw std::runtime_error(std::string("socketpair: ") + strerror(errno));
    }
    sandbox::Process process = root.Start([&] {
        ours.reset();
        android::base::SetLogger([](auto&&...) {});
        return SendDocument(theirs.get(), question()) ? 0 : 1;
    });
    theirs.reset();
    json answer;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    if (ReceiveDocument(ours.get(), deadline, &answer) != Received::kMessage) return std::nullopt;
    return answer;
}

bool SendMessage(int fd, Message message) {
    const json document = ToJson(message);
    message = StepRequest();  // which may have been large
    return SendDocument(fd, document);
}

Received ReceiveMessage(int fd, std::chrono::steady_clock::time_point deadline, Message* message) {
    json document;
    const Received received = ReceiveDocument(fd, deadline, &document);
    if (received == Received::kMessage) *message = MessageFromJson(std::move(document));
    return received;
}

}  // namespace extprop
