// The process that plays init inside the sandbox: it performs steps with the extension and reports
// everything that happens, as it happens.

#pragma once

#include "IInitExtensionProperty.h"
#include "steps.h"

namespace extprop {

// The extension's exported function.
using FetchExtension = IInitExtensionProperty* (*)(const char* library);

// Loads the extension library as init does. Throws std::runtime_error.
FetchExtension LoadExtension();

// Plays init for one boot, in a process of its own: fetches the extension with `properties` as the
// system properties, then performs the steps whose indices in `steps` arrive at `channel`, until it
// is closed. Sends an event for each thing that happens (docs/json.md lists them) and, after each
// step, {"done": true, "properties": {...}}. Returns the process's exit status.
int PlayInit(FetchExtension fetch, const PropertyMap& properties, const std::vector<Step>& steps,
             int channel);

}  // namespace extprop
