// The process that plays init inside the sandbox: it performs the steps with the extension library.

#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "boot/last_file.h"
#include "boot/load_recorder.h"
#include "boot/steps.h"
#include "platform.h"

namespace extprop {

// The extension's exported function. `library` is the library's own name; the extension lives as
// long as the process.
using FetchExtension = IInitExtensionProperty* (*)(const char* library);

// Loads the extension library as init does; it stays loaded. Throws std::runtime_error with the
// reason if the library or its function is missing.
FetchExtension LoadExtension();

// Returns the properties as those that a boot is expected to set, each with whether init takes it.
// `properties` must outlive the result. Throws as WhyRefused() does.
platform::ExpectedProperties Expect(const PropertyMap& properties);

// What is reported of a boot besides the properties at its end.
enum class Detail {
    kEverything,
    kOrigins,  // only what finding the origins of the traced names needs
    kNothing,
};

// A switch key of the phone, whose system sets the property before each step `sim`.
struct KeyInForce {
    std::string property;
    std::string value;
    Step step;  // the step by which init learns of a changed key
};

// The input of one boot.
struct BootPlan {
    std::vector<Step> steps;
    PropertyMap properties;             // the system's before the first step
    PropertyMap stored;                 // the persistent ones, which take effect after `early`
    std::vector<std::string> requests;  // of the installing service, to the bind thread
    std::set<std::string> written;      // the files that an earlier boot wrote
    std::vector<KeyInForce> keys;
    // The imports and properties that the boot's record covers. If both are null, no record is
    // made; one without the other is not allowed.
    const DeviceImports* imports = nullptr;
    const std::set<std::string>* watched = nullptr;
    Detail detail = Detail::kEverything;
    // The properties at the end are reported as the difference from these; if null, all are
    // reported.
    const platform::ExpectedProperties* expected = nullptr;
    // Selects the names whose lines are reported, so that their origins can be found. Empty: none.
    std::function<bool(const std::string& name)> traced;
};

// Plays init for one boot, in a process of its own. It fetches the extension and then serves the
// StepRequests that arrive at the socket `channel`, until that is closed. A request is the index of
// a step of the plan; or, counting on from the last, of the step of one of the plan's keys, which
// is performed only if the key is not in force; or kNoStep for none; or kEndOfBoot for what ends a
// boot, such as the stored properties if no step has set them. No other index is allowed. Sends an
// event for each thing that happens and StepDone after each request. `last_file` receives the path
// of each file that is opened, so that the last is known after a crash, too.
//
// Returns 0, the process's exit status, when the channel is closed or brings a malformed document;
// what cannot be sent is dropped. Ends the process, as EndAt() does, at a limit other than of
// memory, for which the caller has called EndAtMemoryLimit(), or with kChangesFailed if a step's
// file cannot be written. Throws what the library throws.
int EmulateInit(FetchExtension fetch, const BootPlan& plan, int channel, LastFile* last_file);

inline constexpr int kNoStep = -1;
inline constexpr int kEndOfBoot = -2;

}  // namespace extprop
