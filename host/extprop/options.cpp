#include "options.h"

#include "device/property_text.h"

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

}  // namespace

void AddBootOptions(CLI::App* command, BootArguments* arguments) {
    // Without this an option would take every word behind it, steps too.
    constexpr bool kOneEach = false;
    command->add_option("--set", arguments->settings, "Set a system property before the first step")
            ->type_name("NAME=VALUE")
            ->allow_extra_args(kOneEach);
    command->add_option("--props", arguments->property_files,
                        "Set the properties in FILE, a property file or getprop's output, before "
                        "those of --set")
            ->type_name("FILE")
            ->allow_extra_args(kOneEach);
    command->add_option("--request", arguments->requests,
                        "Hand VALUE to the bind thread of cota-service:check_mount once it has "
                        "acknowledged the one before; in the end the thread is told to stop")
            ->type_name("VALUE")
            ->allow_extra_args(kOneEach);
    command->add_flag("--no-complete", arguments->no_complete,
                      "Do not tell the bind thread to stop; it gives up after 20 s without a "
                      "request");
    command->add_option("--timeout", arguments->time_limit,
                        "Seconds that a step may take before the library counts as hung")
            ->type_name("SECONDS")
            ->check(CLI::Range(1, 3600))
            ->capture_default_str();
    command->footer(StepsHelp());
}

BootOptions OptionsOf(const std::string& device, const BootArguments& arguments) {
    BootOptions options;
    options.device = device;
    options.time_limit = std::chrono::seconds(arguments.time_limit);
    BootPlan& plan = options.plan;
    for (const std::string& step : arguments.steps) plan.steps.push_back(ParseStep(step));
    if (plan.steps.empty()) plan.steps = {ParseStep("early"), ParseStep("persist")};
    for (const std::string& file : arguments.property_files) {
        for (const auto& [name, value] : ReadProperties(file)) plan.properties[name] = value;
    }
    for (const std::string& setting : arguments.settings) {
        const auto [name, value] = ParseSetting(setting);
        plan.properties[name] = value;
    }
    plan.requests = arguments.requests;
    if (!arguments.no_complete) plan.requests.push_back(kBindComplete);
    return options;
}

}  // namespace extprop
