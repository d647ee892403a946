#include "boot/message.h"

#include <limits.h>
#include <poll.h>
#include <stdint.h>

#include <algorithm>

#include <android-base/file.h>

namespace extprop {

// CBOR rather than text: property values are bytes, not always UTF-8. Its size goes first.
bool SendMessage(int fd, const json& message) {
    const std::vector<uint8_t> body = json::to_cbor(message);
    const uint32_t size = body.size();
    return android::base::WriteFully(fd, &size, sizeof(size)) &&
           android::base::WriteFully(fd, body.data(), body.size());
}

Received ReceiveMessage(int fd, std::chrono::steady_clock::time_point deadline, json* message) {
    using namespace std::chrono;
    const auto left = duration_cast<milliseconds>(deadline - steady_clock::now());
    const int wait = static_cast<int>(std::clamp<int64_t>(left.count(), 0, INT_MAX));
    pollfd ready{fd, POLLIN, 0};
    if (TEMP_FAILURE_RETRY(poll(&ready, 1, wait)) != 1) return Received::kTimeOut;

    uint32_t size = 0;
    if (!android::base::ReadFully(fd, &size, sizeof(size))) return Received::kEnd;
    std::vector<uint8_t> body(size);
    if (!android::base::ReadFully(fd, body.data(), body.size())) return Received::kEnd;
    *message = json::from_cbor(body);
    return Received::kMessage;
}

}  // namespace extprop
