// extprop: shows on a workstation what the extension library will do on a phone.

#include <exception>
#include <iostream>

#include <CLI/CLI.hpp>

#include "boot.h"
#include "input_error.h"
#include "property_text.h"
#include "report_text.h"

namespace {

using namespace extprop;

constexpr int kBadInput = 2;
constexpr int kLibraryFailed = 3;

struct BootArguments {
    std::string device;
    std::vector<std::string> steps;
    std::vector<std::string> settings;
    std::vector<std::string> property_files;
    std::vector<std::string> requests;
    bool no_complete = false;
    unsigned time_limit = 30;
    bool json = false;
    bool quiet = false;
    bool verbose = false;
};

std::string StepsHelp() {
    std::string help = "Steps, performed in the order given (default: early persist):\n";
    for (const StepKind& kind : StepKinds()) {
        std::string word = kind.word;
        if (kind.argument != nullptr) word += std::string(":") + kind.argument;
        help += "  " + word + std::string(24 - word.size(), ' ') + kind.help + "\n";
    }
    help += "\nExamples:\n"
            "  extprop boot samples/overlay\n"
            "  extprop boot phone early persist --set sys.sim.switch.first=carrier1\n"
            "  extprop boot phone --props getprop.txt early persist reboot early persist\n"
            "\nExit status: 0 booted; 2 bad input, nothing done; 3 the library crashed or hung.\n";
    return help;
}

void AddBoot(CLI::App* app, BootArguments* arguments) {
    CLI::App* boot = app->add_subcommand(
            "boot", "Play init over a device directory and show what the library does");
    boot->add_option("DEVICE", arguments->device,
                     "Directory that looks like the device's root; it is never changed")
            ->required();
    boot->add_option("STEP", arguments->steps, "Steps of the boot, listed below");
    boot->add_option("--set", arguments->settings, "Set a system property before the first step")
            ->type_name("NAME=VALUE")
            ->allow_extra_args(false);
    boot->add_option("--props", arguments->property_files,
                     "Set the properties in FILE, a property file or getprop's output, before "
                     "those of --set")
            ->type_name("FILE")
            ->allow_extra_args(false);
    boot->add_option("--request", arguments->requests,
                     "Hand VALUE to the bind thread of cota-service:check_mount once it has "
                     "acknowledged the one before; in the end the thread is told to stop")
            ->type_name("VALUE")
            ->allow_extra_args(false);
    boot->add_flag("--no-complete", arguments->no_complete,
                   "Do not tell the bind thread to stop; it gives up after 20 s without a request");
    boot->add_option("--timeout", arguments->time_limit,
                     "Seconds that a step may take before the library counts as hung")
            ->type_name("SECONDS")
            ->check(CLI::Range(1, 3600))
            ->capture_default_str();
    auto* json =
            boot->add_flag("--json", arguments->json, "Print one JSON document (docs/json.md)");
    auto* quiet = boot->add_flag("--quiet,-q", arguments->quiet, "Print only the properties");
    boot->add_flag("--verbose,-v", arguments->verbose,
                   "Print every log line and opened file as well");
    json->excludes(quiet);
    boot->footer(StepsHelp());
}

BootOptions OptionsOf(const BootArguments& arguments) {
    BootOptions options;
    options.device = arguments.device;
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

int RunBoot(const BootArguments& arguments) {
    const nlohmann::json report = Boot(OptionsOf(arguments));
    const bool failed = !report["failure"].is_null();
    for (const auto& note : report["notes"]) {
        std::cerr << "extprop: note: " << note.get<std::string>() << "\n";
    }
    if (arguments.json) {
        // Bytes that are not UTF-8 cannot stand in JSON.
        std::cout << report.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
    } else if (!arguments.quiet) {
        std::cout << ReportText(report, arguments.verbose);
    } else if (!failed) {
        std::cout << PropertyListing(report["properties"].get<PropertyMap>());
    }
    std::cout.flush();
    if (!failed) return 0;
    std::cerr << "extprop: " << FailureText(report) << "\n";
    return kLibraryFailed;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Shows on a workstation what libtesvoextproperty will do on a phone.", "extprop");
    app.require_subcommand(1);
    app.footer("Run 'extprop boot --help' for the steps and examples.");
    BootArguments boot;
    AddBoot(&app, &boot);
    try {
        app.parse(argc, argv);
        return RunBoot(boot);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);  // --help
        std::cerr << "extprop: " << error.what() << "\n";
    } catch (const std::exception& error) {
        std::cerr << "extprop: " << error.what() << "\n";
    }
    return kBadInput;
}
