// The steps of a boot, in init's order, by their words on the command line.

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

// What a step's action needs; none is null when a step that uses it is performed.
struct StepContext {
    IInitExtensionProperty* extension;
    PropertyMap* early_properties;  // init's own map for the early load
    PropertyCallback callback;
    // What other programs on the phone do between the library's steps: set a property, or write a
    // file, as WholeFile() describes.
    std::function<void(const std::string& name, const std::string& value)> set = nullptr;
    std::function<void(const std::string& path, const std::string& text)> write = nullptr;
};

// One kind of step: its word on the command line, what may follow after a ":", and its action.
struct StepKind {
    const char* word;
    const char* argument;  // the argument's name in the help, or null if the step takes none
    const char* help;
    const char* operation;               // of the library, which it calls; null for none
    std::vector<const char*> arguments;  // those that the library accepts, if they are fixed words
    void (*perform)(const StepContext& context, const std::string& argument);
};

// All kinds, in the order of a boot. A word may stand twice, with and without an argument.
const std::vector<StepKind>& StepKinds();

struct Step {
    const StepKind* kind;  // of StepKinds()
    std::string argument;  // empty if the kind takes none
    std::string text;      // as it was given

    // A reboot is a new process over the same files, and has no action of its own.
    bool is_reboot() const { return kind->perform == nullptr; }

    // Another program than the library acts in this step.
    bool is_others() const { return kind->operation == nullptr && !is_reboot(); }

    // Returns the property and value of a step `set`, nothing for other steps.
    std::optional<std::pair<std::string, std::string>> setting() const;

    // The step fills init's own map, before the stored persistent properties take effect.
    bool is_early() const;

    // The library goes on in a thread of its own after this step.
    bool starts_bind_thread() const;

    // The library takes the switch keys from their properties.
    bool switches_keys() const;

    // The library copies a boot logo to the splash partition.
    bool copies_logo() const;
};

// The default steps.
inline constexpr const char* kDefaultSteps[] = {"early", "persist"};

// Returns whether the text begins with a step's word. What follows after a ":" is not checked.
bool IsStepWord(const std::string& text);

// Returns the step, with what follows the ":" as it is, for which a misspelt one was probably
// meant, or "" if no word is near.
std::string NearestStep(const std::string& text);

// Parses a step such as "early" or "sim:regionSwitch". Throws InputError for an unknown word, for
// an argument that is missing or that the step does not take, and for a step `set` or `write` that
// no program on a phone could perform. CheckStep() checks whether the library accepts the argument.
Step ParseStep(const std::string& text);

// Throws InputError if the library ignores the step because of what follows the ":", which may be
// empty.
void CheckStep(const Step& step);

}  // namespace extprop
