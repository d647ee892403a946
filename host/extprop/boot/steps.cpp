#include "boot/steps.h"

#include <string.h>

#include <algorithm>
#include <string_view>

#include <android-base/strings.h>

#include "TesvoExtensionProperty/commands.h"
#include "device/legal.h"
#include "device/property_text.h"
#include "input_error.h"
#include "nearest.h"

namespace extprop {

namespace {

using namespace android::init;

constexpr char kMediaRoots[] = "/my_";
constexpr char kSetWord[] = "set";
constexpr char kWriteWord[] = "write";

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
             "hand over a carrier package that is mounted already (slot 7)",
             "loadCotaOverrideProperties",
             {},
             [](const StepContext& context, const std::string&) {
                 context.extension->loadCotaOverrideProperties(context.callback);
             }},
            {"duskrider",
             nullptr,
             "hand over the limited edition's company file (slot 8)",
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
            {kSetWord,
             "NAME=VALUE",
             "another process sets a property, such as a switch key",
             nullptr,
             {},
             [](const StepContext& context, const std::string& text) {
                 const auto [name, value] = ParseSetting(text);
                 context.set(name, value);
             }},
            {kWriteWord,
             "PATH=VALUE",
             "another process writes a file; for a key file VALUE may be the key alone",
             nullptr,
             {},
             [](const StepContext& context, const std::string& text) {
                 const size_t equals = text.find('=');
                 context.write(text.substr(0, equals), text.substr(equals + 1));
             }},
            {"reboot",
             nullptr,
             "a fresh process: files and persist.* properties stay",
             nullptr,
             {},
             nullptr},
    };
    return kinds;
}

bool Step::is_early() const {
    return std::string_view(kind->word) == "early";
}

std::optional<std::pair<std::string, std::string>> Step::setting() const {
    if (std::string_view(kind->word) != kSetWord) return std::nullopt;
    return ParseSetting(argument, "step set");
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

namespace {

// Checks a step of another program. Throws InputError if no phone's could do it.
void CheckOthers(const Step& step) {
    if (const auto setting = step.setting()) {
        if (const auto reason = WhyRefused(setting->first, setting->second)) {
            throw InputError("step '" + step.text +
                             "': " + RefusedPropertyText(setting->first, *reason));
        }
    } else if (step.argument[0] != '/' || step.argument.find('=') == std::string::npos) {
        throw InputError("step '" + step.text + "': expected " + step.kind->word +
                         ":PATH=VALUE with an absolute PATH");
    }
}

}  // namespace

std::string NearestStep(const std::string& text) {
    constexpr size_t kNear = 2;
    const size_t end = std::min(text.find(':'), text.size());
    std::vector<std::string> words;
    for (const StepKind& kind : StepKinds()) words.emplace_back(kind.word);
    const std::string nearest = Nearest(text.substr(0, end), words, kNear);
    return nearest.empty() ? "" : nearest + text.substr(end);
}

Step ParseStep(const std::string& text) {
    if (!IsStepWord(text)) {
        const std::string nearest = NearestStep(text);
        throw InputError("unknown step '" + text + "'" +
                         (nearest.empty() ? "; see extprop boot --help" : Suggestion(nearest)));
    }
    const size_t colon = text.find(':');
    const bool has_argument = colon != std::string::npos;
    const std::string word = text.substr(0, colon);
    for (const StepKind& kind : StepKinds()) {
        if (word == kind.word && has_argument == (kind.argument != nullptr)) {
            Step step = {&kind, has_argument ? text.substr(colon + 1) : "", text};
            if (step.is_others()) CheckOthers(step);
            return step;
        }
    }
    throw InputError("step '" + text + "': '" + word + "' takes " +
                     (has_argument ? "no argument" : "an argument after ':'"));
}

void CheckStep(const Step& step) {
    if (step.kind->argument == nullptr) return;
    if (step.is_others()) return;  // ParseStep has checked these
    const std::vector<const char*>& known = step.kind->arguments;
    std::string wanted;
    if (step.argument.empty()) {
        wanted = std::string("a ") + step.kind->argument + " after ':'";
    } else if (std::string_view(step.kind->word) == "media") {
        if (step.argument.compare(0, strlen(kMediaRoots), kMediaRoots) == 0) return;
        wanted = std::string("a path that begins with ") + kMediaRoots;
    } else if (known.empty() ||
               std::find(known.begin(), known.end(), step.argument) != known.end() ||
               (step.copies_logo() && step.argument.find('/') != std::string::npos)) {
        return;  // a path or word that the library accepts, or a path whose logo is copied
    } else {
        wanted = "one of";
        for (const char* argument : known) wanted += std::string(" ") + argument;
    }
    throw InputError("step '" + step.text + "': the library ignores it; it takes " + wanted +
                     "; --any-word passes it on");
}

}  // namespace extprop
