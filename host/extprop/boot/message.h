// Messages between the tool and the process that plays init.

#pragma once

#include <chrono>

#include <nlohmann/json.hpp>

namespace extprop {

using nlohmann::json;

// Sends one message. Returns false when the other side is gone.
bool SendMessage(int fd, const json& message);

enum class Received { kMessage, kEnd, kTimeOut };

// Receives one message, waiting for its start until `deadline`.
Received ReceiveMessage(int fd, std::chrono::steady_clock::time_point deadline, json* message);

}  // namespace extprop
