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

// Asks for a step of the plan, by its index.
struct StepRequest {
    int index = 0;
};

// The step asked for is done; the system properties then, if they are told, as against the plan's
// base.
struct StepDone {
    PropertyDelta delta;
    bool performed = true;  // or it was not needed
    BootRecord record;      // of the boot, at its end, if the plan asks for it
};

using Message = std::variant<StepRequest, StepDone, Event, LinesRead>;

// Sends one document. Returns false when the other side is gone. Adds its bytes to `*sent`.
bool SendDocument(int fd, const nlohmann::json& document, size_t* sent = nullptr);

// Sends one message so.
bool SendMessage(int fd, Message message, size_t* sent = nullptr);

enum class Received { kMessage, kEnd, kTimeOut };

// Receives one document, waiting for its start until `deadline`. Takes its bytes from `*left`, and
// counts a larger one as the end; without that the limit of one boot holds for each document.
Received ReceiveDocument(int fd, std::chrono::steady_clock::time_point deadline,
                         nlohmann::json* document, size_t* left = nullptr);

// Receives one message so.
Received ReceiveMessage(int fd, std::chrono::steady_clock::time_point deadline, Message* message,
                        size_t* left = nullptr);

// Has the question answered in a process inside the sandbox. Returns nothing if that crashes or
// does not come back within the limit. Throws as Sandbox::CheckImages() does.
std::optional<nlohmann::json> AskInside(const sandbox::Sandbox& root,
                                        const std::function<nlohmann::json()>& question,
                                        std::chrono::seconds limit);

}  // namespace extprop
