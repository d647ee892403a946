// Boots a device directory and tells what happened.

#pragma once

#include <chrono>
#include <string>

#include <nlohmann/json.hpp>

#include "boot/init_process.h"

namespace extprop {

struct BootOptions {
    std::string device;                   // the device directory
    BootPlan plan;                        // its properties are set again after a reboot
    std::chrono::seconds time_limit{30};  // for each step
};

// Performs the steps over a throw-away layer on the device directory and returns the report that
// docs/json.md describes. A crash or hang of the library is part of the report. Throws InputError
// if the directory cannot be used, std::runtime_error if the sandbox or library cannot be had.
nlohmann::json Boot(const BootOptions& options);

}  // namespace extprop
