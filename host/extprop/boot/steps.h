// The steps of a boot, as init takes them and the command line names them.

#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "IInitExtensionProperty.h"

namespace extprop {

using android::init::IInitExtensionProperty;
using android::init::PropertyCallback;
using android::init::PropertyMap;

// What a step is performed with.
struct StepContext {
    IInitExtensionProperty* extension;
    PropertyMap* early_properties;  // init's own map of the early load
    PropertyCallback callback;
    // What others on the phone do between the library's steps: one sets a property, one writes a
    // file, as WholeFile() has it.
    std::function<void(const std::string& name, const std::string& value)> set = nullptr;
    std::function<void(const std::string& path, const std::string& text)> write = nullptr;
};

// One kind of step: its word on the command line, what may follow it behind a ":", and its action.
struct StepKind {
    const char* word;
    const char* argument;  // the argument's name in the help, or null if the step takes none
    const char* help;
    const char* operation;               // the library's, that it calls; null for none
    std::vector<const char*> arguments;  // those that the library knows; empty if it is a path
    void (*perform)(const StepContext& context, const std::string& argument);
};

// All kinds, in the order of a boot. A word may stand twice, with and without an argument.
const std::vector<StepKind>& StepKinds();

struct Step {
    const StepKind* kind;
    std::string argument;
    std::string text;  // as it was given

    // A fresh process over the same files. It has no action of its own.
    bool is_reboot() const { return kind->perform == nullptr; }

    // Another than the library acts.
    bool is_others() const { return kind->operation == nullptr && !is_reboot(); }

    // Of a step set: the property and its value.
    std::optional<std::pair<std::string, std::string>> setting() const;

    // It fills init's own map, before the stored persistent properties are in force.
    bool is_early() const;

    // The library goes on in a thread of its own after this step.
    bool starts_bind_thread() const;

    // The library takes the switch keys from their properties.
    bool switches_keys() const;

    bool copies_logo() const;
};

// The steps of a boot that names none.
inline constexpr const char* kDefaultSteps[] = {"early", "persist"};

// Whether the text begins with a step's word, whatever stands behind its ":".
bool IsStepWord(const std::string& text);

// Returns the step that a misspelt one was probably meant to be, or "".
std::string NearestStep(const std::string& text);

// Parses a step such as "early" or "sim:regionSwitch". Throws InputError.
Step ParseStep(const std::string& text);

// Throws InputError if nothing would come of what the step says behind its ":".
void CheckStep(const Step& step);

}  // namespace extprop
