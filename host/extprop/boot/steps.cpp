#include "boot/steps.h"

#include <string.h>

#include <algorithm>
#include <string_view>

#include <android-base/strings.h>

#include "TesvoExtensionProperty/commands.h"
#include "input_error.h"

namespace extprop {

namespace {

using namespace android::init;

constexpr char kMediaRoots[] = "/my_";

std::vector<const char*> SwitchCommands() {
    std::vector<const char*> words;
    for (const SwitchKeyCommand& known : kSwitchKeyCommands) words.push_back(known.command);
    for (const SwitchFileCommand& known : kSwitchFileCommands) words.push_back(known.command);
    for (const char* trigger : {kBootTrigger, kCompanyTrigger}) words.push_back(trigger);
    return words;
}

std::vector<const char*> ServiceCommands() {
    std::vector<const char*> words = {kCheckMount};
    for (const NamedOperation& known : kServiceCommands) words.push_back(known.word);
    return words;
}

}  // namespace

const std::vector<StepKind>& StepKinds() {
    static const std::vector<StepKind> kinds = {
            {"early",
             nullptr,
             "load the build.prop of every partition (slot 4)",
             "loadExtensionPartitionProperties",
             {},
             [](const StepContext& context, const std::string&) {
                 context.extension->loadExtensionPartitionProperties(context.early_properties);
             }},
            {"early",
             "ROOT",
             "load the build.prop of the partition at ROOT (slot 5)",
             "loadExtensionPartitionProperties",
             {},
             [](const StepContext& context, const std::string& root) {
                 context.extension->loadExtensionPartitionProperties(root,
                                                                     context.early_properties);
             }},
            {"persist",
             nullptr,
             "the boot sequence after the persistent properties (slot 6)",
             "loadPersistOverrideProperties",
             {},
             [](const StepContext& context, const std::string&) {
                 context.extension->loadPersistOverrideProperties(context.callback);
             }},
            {"cota",
             nullptr,
             "hand on a carrier package that is mounted already (slot 7)",
             "loadCotaOverrideProperties",
             {},
             [](const StepContext& context, const std::string&) {
                 context.extension->loadCotaOverrideProperties(context.callback);
             }},
            {"duskrider",
             nullptr,
             "hand on the limited edition's company file (slot 8)",
             "loadDuskriderOverrideProperties",
             {},
             [](const StepContext& context, const std::string&) {
                 context.extension->loadDuskriderOverrideProperties(context.callback);
             }},
            {"sim",
             nullptr,
             "reload what the SIM, carrier and region keys select (slot 9)",
             "loadSimSwitchOverrideProperties",
             {},
             [](const StepContext& context, const std::string&) {
                 context.extension->loadSimSwitchOverrideProperties(context.callback);
             }},
            {"sim", "COMMAND", "one switch command, such as sim:regionSwitch (slot 10)",
             "loadSimSwitchOverrideProperties", SwitchCommands(),
             [](const StepContext& context, const std::string& command) {
                 context.extension->loadSimSwitchOverrideProperties(command, context.callback);
             }},
            {"cota-service", "COMMAND", "one carrier-package command (slot 12)",
             "loadCotaServiceOverrideProperties", ServiceCommands(),
             [](const StepContext& context, const std::string& command) {
                 context.extension->loadCotaServiceOverrideProperties(command, context.callback);
             }},
            {"media",
             "PATH",
             "bind the package's media over PATH (slot 3)",
             "bindCustomizeMediaPath",
             {},
             [](const StepContext& context, const std::string& path) {
                 context.extension->bindCustomizeMediaPath(path.c_str());
             }},
            {"reboot",
             nullptr,
             "start again: files and persist.* properties stay",
             nullptr,
             {},
             nullptr},
    };
    return kinds;
}

bool Step::is_early() const {
    return std::string_view(kind->word) == "early";
}

bool Step::switches_keys() const {
    return std::string_view(kind->word) == "sim";
}

bool Step::starts_bind_thread() const {
    return std::string_view(kind->word) == "cota-service" && argument == kCheckMount;
}

bool Step::copies_logo() const {
    return switches_keys() && android::base::StartsWith(argument, kLogoTrigger);
}

bool IsStepWord(const std::string& text) {
    const std::vector<StepKind>& kinds = StepKinds();
    const std::string word = text.substr(0, text.find(':'));
    return std::any_of(kinds.begin(), kinds.end(),
                       [&](const StepKind& kind) { return word == kind.word; });
}

Step ParseStep(const std::string& text) {
    if (!IsStepWord(text)) throw InputError("unknown step '" + text + "'; see extprop boot --help");
    const size_t colon = text.find(':');
    const bool has_argument = colon != std::string::npos;
    const std::string word = text.substr(0, colon);
    for (const StepKind& kind : StepKinds()) {
        if (word == kind.word && has_argument == (kind.argument != nullptr)) {
            return {&kind, has_argument ? text.substr(colon + 1) : "", text};
        }
    }
    throw InputError("step '" + text + "': '" + word + "' takes " +
                     (has_argument ? "no argument" : "an argument behind a ':'"));
}

void CheckStep(const Step& step) {
    if (step.kind->argument == nullptr) return;
    const std::vector<const char*>& known = step.kind->arguments;
    std::string wanted;
    if (step.argument.empty()) {
        wanted = std::string("a ") + step.kind->argument + " behind the ':'";
    } else if (std::string_view(step.kind->word) == "media") {
        if (step.argument.compare(0, strlen(kMediaRoots), kMediaRoots) == 0) return;
        wanted = std::string("a path that begins with ") + kMediaRoots;
    } else if (known.empty() ||
               std::find(known.begin(), known.end(), step.argument) != known.end() ||
               (step.copies_logo() && step.argument.find('/') != std::string::npos)) {
        return;  // a path, a known word, or the logo copy of a path
    } else {
        wanted = "one of";
        for (const char* argument : known) wanted += std::string(" ") + argument;
    }
    throw InputError("step '" + step.text + "': the library ignores it, it takes " + wanted +
                     "; --any-word lets it through");
}

}  // namespace extprop
