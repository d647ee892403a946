// Messages between the tool and the process that plays init.

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

// Requests a step of the plan, by its index.
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

// Sends one document and adds its size in bytes to `*sent`. Returns false if the other side has
// closed the channel.
bool SendDocument(int fd, const nlohmann::json& document, size_t* sent = nullptr);

// Sends one message in the same way.
bool SendMessage(int fd, Message message, size_t* sent = nullptr);

enum class Received { kMessage, kEnd, kTimeOut };

// Receives one document and waits for its start until `deadline`. `*left` is the number of bytes
// that may still arrive, from which this subtracts; a document above it counts as the end. If
// `left` is null, each document may have limits::kEvents bytes.
Received ReceiveDocument(int fd, std::chrono::steady_clock::time_point deadline,
                         nlohmann::json* document, size_t* left = nullptr);

// Receives one message in the same way.
Received ReceiveMessage(int fd, std::chrono::steady_clock::time_point deadline, Message* message,
                        size_t* left = nullptr);

// Calls `question` in a process inside the sandbox and returns its result. Returns nothing if that
// crashes or exceeds the time limit. Throws as Sandbox::CheckImages() does.
std::optional<nlohmann::json> AskInside(const sandbox::Sandbox& root,
                                        const std::function<nlohmann::json()>& question,
                                        std::chrono::seconds limit);

}  // namespace extprop
