#include "commands/options.h"

#include <algorithm>
#include <filesystem>

#include "TesvoExtensionProperty/commands.h"
#include "commands/command.h"
#include "device/legal.h"
#include "device/phone.h"
#include "input_error.h"

namespace extprop {

namespace {

std::string StepsHelp() {
    std::string help = "Steps, performed in the order given (default: early persist):\n";
    for (const StepKind& kind : StepKinds()) {
        std::string word = kind.word;
        if (kind.argument != nullptr) word += std::string(":") + kind.argument;
        word.resize(24, ' ');
        help += "  " + word + kind.help + "\n";
    }
    return help;
}

std::string RequestHelp() {
    std::string help = "Hand VALUE, of ";
    for (const auto& request : android::init::kRequests) help += std::string(request.word) + ", ";
    return help +
           "to the bind thread of cota-service:check_mount once it has acknowledged the one "
           "before; in the end the tool asks the thread to stop";
}

}  // namespace

void AddImageOptions(CommandLine* line, ImageArguments* arguments) {
    arguments->slot = "a";
    line->AddChoice(
            "--slot", {"a", "b"}, &arguments->slot,
            "Take this slot's image of a partition that has images for two slots (default: a)");
    line->AddOption("--image", "NAME=FILE", &arguments->files,
                    "Read the image FILE, which may lie anywhere and be a block device, as "
                    "NAME.img in DEVICE");
}

sandbox::Options ImageOptionsOf(const ImageArguments& arguments) {
    sandbox::Options options;
    options.slot = arguments.slot[0];
    for (const std::string& image : arguments.files) {
        const size_t equals = image.find('=');
        if (equals == std::string::npos || equals == 0 || equals + 1 == image.size()) {
            throw InputError("--image '" + image + "': expected NAME=FILE");
        }
        options.images[image.substr(0, equals)] = image.substr(equals + 1);
    }
    return options;
}

std::vector<std::string> InputsOf(const std::string& device, const ImageArguments& images) {
    std::vector<std::string> inputs = {device};
    for (const auto& [image, file] : ImageOptionsOf(images).images) inputs.push_back(file);
    return inputs;
}

std::vector<std::string> InputsOf(const std::string& device, const BootArguments& boot) {
    std::vector<std::string> inputs = InputsOf(device, boot.images);
    inputs.push_back(boot.other_device);
    inputs.insert(inputs.end(), boot.property_files.begin(), boot.property_files.end());
    return inputs;
}

void AddBootOptions(CommandLine* line, BootArguments* arguments) {
    line->AddOption("--set", "NAME=VALUE", &arguments->settings,
                    "Set a system property before the first step");
    line->AddOption(
            "--props", "FILE", &arguments->property_files,
            "Set the properties in FILE before those of --set: a property file, what getprop "
            "prints, a bug report or the persistent properties' store; - is standard input");
    for (int axis = 0; axis < kAxisCount; ++axis) {
        line->AddOption((std::string("--") + kAxes[axis].name).c_str(), kAxes[axis].value,
                        &arguments->what_if[axis], kAxes[axis].what_if);
    }
    line->AddOption("--edit", "PATH:NAME=VALUE", &arguments->edits,
                    "What if the property's line in the device's file PATH had this value; a line "
                    "or file that is missing is made");
    line->AddOption(
            "--delete", "PATH[:NAME]", &arguments->deletions,
            "What if the device's file PATH, or the property's lines in it, were not there");
    AddImageOptions(line, &arguments->images);
    line->AddOption("--request", "VALUE", &arguments->requests, RequestHelp());
    line->AddFlag(
            "--no-complete", &arguments->no_complete,
            "Do not ask the bind thread to stop; it gives up after 20 seconds without a request");
    line->AddFlag("--any-word", &arguments->any_word,
                  "Also take commands, paths and requests that the library ignores");
    line->AddNumber("--timeout", "SECONDS", 1, 3600, &arguments->time_limit,
                    "Seconds that a step may take before the library counts as hung");
    line->AddFooter(StepsHelp());
}

namespace {

void AddProperty(const std::string& where, const std::string& name, const std::string& value,
                 PropertyMap* properties) {
    if (auto reason = WhyRefused(name, value)) {
        throw InputError(where + ": " + RefusedPropertyText(name, *reason));
    }
    (*properties)[name] = value;
}

}  // namespace

std::vector<std::string> TakeSteps(const std::vector<std::string>& words,
                                   BootArguments* arguments) {
    std::vector<std::string> others;
    for (const std::string& word : words) {
        (IsStepWord(word) ? arguments->steps : others).push_back(word);
    }
    return others;
}

BootOptions OptionsOf(const std::string& device, const BootArguments& arguments) {
    if (IsStepWord(device) && !std::filesystem::exists(device)) {
        throw InputError("'" + device + "' is a step; DEVICE comes before the steps");
    }
    BootOptions options;
    options.device = device;
    options.images = ImageOptionsOf(arguments.images);
    options.time_limit = std::chrono::seconds(arguments.time_limit);
    BootPlan& plan = options.plan;
    for (const std::string& step : arguments.steps) {
        plan.steps.push_back(ParseStep(step));
        if (!arguments.any_word) CheckStep(plan.steps.back());
    }
    options.uses_default_steps = plan.steps.empty();
    for (const char* step : kDefaultSteps) {
        if (options.uses_default_steps) plan.steps.push_back(ParseStep(step));
    }
    for (const std::string& file : arguments.property_files) {
        const Phone phone = ReadPhone(file, {device, arguments.other_device});
        PrintNotes(phone.notes);
        for (const auto& [name, value] : phone.properties) {
            AddProperty(file, name, value, &plan.properties);
        }
    }
    for (const std::string& setting : arguments.settings) {
        const auto [name, value] = ParseSetting(setting);
        AddProperty("--set '" + setting + "'", name, value, &plan.properties);
    }
    const bool has_thread = std::any_of(plan.steps.begin(), plan.steps.end(),
                                        [](const Step& step) { return step.starts_bind_thread(); });
    if (!arguments.requests.empty() && !has_thread && !arguments.any_word) {
        throw InputError("--request goes with the step cota-service:check_mount");
    }
    plan.requests = arguments.requests;
    if (!arguments.no_complete) plan.requests.push_back(android::init::kBindComplete);
    for (int axis = 0; axis < kAxisCount; ++axis) {
        const std::string value = arguments.what_if[axis].value_or("");
        if (const auto reason = WhyImpossible(axis, value)) {
            throw InputError(std::string("--") + kAxes[axis].name + " '" + value +
                             "': no phone has such a value: " + *reason);
        }
    }
    options.what_if.variant = arguments.what_if;
    for (const std::string& deletion : arguments.deletions) {
        options.what_if.edits.push_back(ParseDeletion(deletion));
    }
    for (const std::string& edit : arguments.edits) {
        options.what_if.edits.push_back(ParseEdit(edit));
    }
    return options;
}

}  // namespace extprop
