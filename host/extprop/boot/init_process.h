// The process that plays init inside the sandbox: it performs steps with the extension and reports
// everything that happens, as it happens.

#pragma once

#include "IInitExtensionProperty.h"
#include "TesvoExtensionProperty/names.h"
#include "boot/steps.h"

namespace extprop {

// The extension's exported function.
using FetchExtension = IInitExtensionProperty* (*)(const char* library);

// Loads the extension library as init does. Throws std::runtime_error.
FetchExtension LoadExtension();

using android::init::kSplashPartition;

// What one boot is made of.
struct BootPlan {
    std::vector<Step> steps;
    PropertyMap properties;             // the system properties before the first step
    std::vector<std::string> requests;  // of the installing service, while a bind thread runs
    bool traced = false;                // events of opened files carry the files' content
};

// Plays init for one boot, in a process of its own: fetches the extension, then performs the step
// of the plan whose index arrives at `channel`, until that is closed; null asks for no step. Sends
// an event for each thing that happens (docs/json.md lists them) and, after each step,
// {"done": true, "properties": {...}}. Returns the process's exit status.
int PlayInit(FetchExtension fetch, const BootPlan& plan, int channel);

// Sends, inside the sandbox, an "open" event with the content of every property file of the device.
// Returns the process's exit status.
int SendPropertyFiles(int channel);

}  // namespace extprop
