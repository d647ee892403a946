// The process that plays init inside the sandbox: it performs steps with the extension.

#pragma once

#include <functional>
#include <optional>
#include <set>

#include "boot/last_file.h"
#include "boot/load_recorder.h"
#include "boot/steps.h"

namespace extprop {

// The extension's exported function.
using FetchExtension = IInitExtensionProperty* (*)(const char* library);

// Loads the extension library as init does. Throws std::runtime_error.
FetchExtension LoadExtension();

// What is told of a boot besides what init has at its end.
enum class Detail {
    kEverything,
    kOrigins,  // what the origins of the traced names are found by, and no more
    kNothing,
};

// A switch key that a phone has: before each step sim its system sets the property.
struct KeyInForce {
    std::string property;
    std::string value;
    Step step;  // by which init learns that the key has changed
};

// What one boot is made of.
struct BootPlan {
    std::vector<Step> steps;
    PropertyMap properties;             // the system's before the first step
    PropertyMap stored;                 // the persistent ones that come in force behind `early`
    std::vector<std::string> requests;  // of the installing service, while a bind thread runs
    std::set<std::string> written;      // the files that an earlier boot wrote
    std::vector<KeyInForce> keys;
    // Of which a record tells: the device's imports, and properties. None is made if they are null.
    const DeviceImports* imports = nullptr;
    const std::set<std::string>* watched = nullptr;
    Detail detail = Detail::kEverything;
    // What the properties are told against; they are told whole if it is null.
    const PropertyMap* base = nullptr;
    // The names whose lines are told of, so that their origins can be known; none if empty.
    std::function<bool(const std::string& name)> traced;
};

// Plays init for one boot, in a process of its own: fetches the extension, then performs the step
// of the plan whose index arrives at `channel`, until that is closed; indices after those are the
// steps of the keys, which are performed if the key is not in force; kNoStep asks for nothing, and
// kEndOfBoot for what belongs to a boot that no later step has brought. Sends an event for each
// thing that happens and, after each request, StepDone. Whatever becomes of the process,
// `last_file` has the file that it opened last. Returns the process's exit status.
int PlayInit(FetchExtension fetch, const BootPlan& plan, int channel, LastFile* last_file);

inline constexpr int kNoStep = -1;
inline constexpr int kEndOfBoot = -2;

}  // namespace extprop
