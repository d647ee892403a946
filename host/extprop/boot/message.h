// Messages between the tool and the process that plays init. `fd` is a stream socket.

#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <variant>

#include <nlohmann/json_fwd.hpp>

#include "boot/property_delta.h"
#include "boot/report.h"
#include "sandbox.h"

namespace extprop {

// Requests a step of the plan, by the index that EmulateInit() takes.
struct StepRequest {
    int index = 0;
};

// Reports that the requested step is done. `delta` is the system's properties then, as a difference
// from the plan's base, if they are reported.
struct StepDone {
    PropertyDelta delta;
    bool performed = true;  // false: it was not needed
    BootRecord record;      // of the boot, at its end, if the plan has one made
};

using Message = std::variant<StepRequest, StepDone, Event, LinesRead>;

// Sends one document and adds its size in bytes to `*sent`, unless that is null. Waits while the
// other side does not read. Returns false if the other side has closed the channel or sending fails
// otherwise.
bool SendDocument(int fd, const nlohmann::json& document, size_t* sent = nullptr);

// Sends one message in the same way.
bool SendMessage(int fd, Message message, size_t* sent = nullptr);

// After kEnd, which also means a malformed or too large document, nothing more can be received, nor
// after kTimeOut if a part of a document has arrived.
enum class Received { kMessage, kEnd, kTimeOut };

// Receives one document, which must be complete by `deadline`. `*left` is the number of bytes that
// may still arrive, from which this subtracts; a document above it is too large. If `left` is null,
// each document may have limits::kEvents bytes.
Received ReceiveDocument(int fd, std::chrono::steady_clock::time_point deadline,
                         nlohmann::json* document, size_t* left = nullptr);

// Receives one message in the same way. Throws json::exception or std::out_of_range for a document
// that is no message.
Received ReceiveMessage(int fd, std::chrono::steady_clock::time_point deadline, Message* message,
                        size_t* left = nullptr);

// Calls `question` in a process inside the sandbox and returns its result. Returns nothing if that
// crashes, throws or exceeds the time limit or the limit of memory, or if the result is larger than
// limits::kEvents bytes. Drops what the library logs. Throws std::runtime_error if no process can
// be started, and as Sandbox::CheckImages() does.
std::optional<nlohmann::json> AskInside(const sandbox::Sandbox& root,
                                        const std::function<nlohmann::json()>& question,
                                        std::chrono::seconds limit);

}  // namespace extprop
