// extprop: shows on a workstation what the extension library will do on a phone, and why.

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <android-base/file.h>
#include <android-base/logging.h>

#include "boot/boot.h"
#include "explain/diff.h"
#include "explain/explain.h"
#include "output/html.h"
#include "input_error.h"
#include "lint/lint.h"
#include "options.h"
#include "device/property_text.h"
#include "output/report_text.h"
#include "explain/trace.h"

namespace {

using namespace extprop;

constexpr int kFindingsFormat = 1;

enum ExitStatus { kDone = 0, kFound = 1, kBadInput = 2, kLibraryFailed = 3 };

// Bytes that are not UTF-8 cannot stand in JSON.
void PrintJson(const nlohmann::json& document) {
    std::cout << document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
}

// Writes the page whole or not at all.
void WritePage(const std::string& path, const nlohmann::json& report,
               const nlohmann::json& explanation) {
    const std::string unfinished = path + ".part";
    if (!android::base::WriteStringToFile(HtmlPage(report, explanation), unfinished) ||
        rename(unfinished.c_str(), path.c_str()) != 0) {
        const std::string why = strerror(errno);
        unlink(unfinished.c_str());
        throw InputError(path + ": " + why);
    }
}

bool WantColours() {
    const char* refused = getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) == 1 && (refused == nullptr || refused[0] == '\0');
}

// Boots, and says on standard error what the user should know of it besides the outcome.
nlohmann::json BootAndWarn(const BootOptions& options) {
    nlohmann::json report = Boot(options);
    for (const auto& note : report["notes"]) {
        std::cerr << "extprop: note: " << note.get<std::string>() << "\n";
    }
    if (!report["failure"].is_null()) std::cerr << "extprop: " << FailureText(report) << "\n";
    return report;
}

ExitStatus StatusOf(const nlohmann::json& report) {
    return report["failure"].is_null() ? kDone : kLibraryFailed;
}

// A command of the tool: its arguments, and its action once they are parsed.
struct BootCommand {
    std::string device;
    BootArguments arguments;
    std::string page;
    bool json = false;
    bool quiet = false;
    bool verbose = false;

    explicit BootCommand(CLI::App* app) {
        CLI::App* command = app->add_subcommand(
                "boot", "Play init over a device directory and show what the library does");
        command->add_option("DEVICE", device,
                            "Directory that looks like the device's root; it is never changed")
                ->required();
        command->add_option("STEP", arguments.steps, "Steps of the boot, listed below");
        AddBootOptions(command, &arguments);
        auto* json_flag = command->add_flag("--json", json, "Print one JSON document");
        command->add_flag("--quiet,-q", quiet, "Print only the properties")->excludes(json_flag);
        command->add_flag("--verbose,-v", verbose, "Print every log line and opened file as well");
        command->add_option("--html", page, "Write a page for the browser to FILE as well")
                ->type_name("FILE");
    }

    ExitStatus Run() const {
        BootOptions options = OptionsOf(device, arguments);
        options.plan.traced = !page.empty();
        nlohmann::json report = BootAndWarn(options);
        if (!page.empty()) {
            WritePage(page, report, Explain(report, {kEverything}));
            DropTrace(&report);
        }
        if (json) {
            PrintJson(report);
        } else if (!quiet) {
            std::cout << ReportText(report, verbose);
        } else if (report["failure"].is_null()) {
            std::cout << PropertyListing(report["properties"].get<PropertyMap>());
        }
        return StatusOf(report);
    }
};

struct ExplainCommand {
    std::string device;
    std::vector<std::string> words;
    BootArguments arguments;
    std::string page;
    bool all = false;
    bool json = false;

    explicit ExplainCommand(CLI::App* app) {
        CLI::App* command = app->add_subcommand(
                "explain", "Boot, and tell where the values of properties come from");
        command->add_option("DEVICE", device, "Directory that looks like the device's root")
                ->required();
        command->add_option("NAME", words,
                            "Names of properties, or patterns such as 'ro.product.*'; and steps, "
                            "listed below");
        command->add_flag("--all", all, "Explain every property");
        AddBootOptions(command, &arguments);
        command->add_flag("--json", json, "Print one JSON document");
        command->add_option("--html", page,
                            "With --all: write a page for the browser to FILE as well")
                ->type_name("FILE");
    }

    ExitStatus Run() {
        std::vector<std::string> patterns;
        if (all) patterns = {kEverything};
        for (const std::string& word : words) {
            (IsStepWord(word) ? arguments.steps : patterns).push_back(word);
        }
        if (patterns.empty()) throw InputError("explain: no NAME is given, nor --all");
        if (!page.empty() && !all) throw InputError("explain: --html goes with --all");
        BootOptions options = OptionsOf(device, arguments);
        options.plan.traced = true;
        const nlohmann::json report = BootAndWarn(options);
        const nlohmann::json explanation = Explain(report, patterns);
        if (!page.empty()) WritePage(page, report, explanation);
        if (json) {
            PrintJson(explanation);
        } else {
            std::cout << ExplanationText(explanation, WantColours());
        }
        return StatusOf(report);
    }
};

struct LintCommand {
    std::string device;
    bool json = false;

    explicit LintCommand(CLI::App* app) {
        CLI::App* command = app->add_subcommand(
                "lint", "Find in a device directory what would hurt on the phone");
        command->add_option("DEVICE", device, "Directory that looks like the device's root")
                ->required();
        command->add_flag("--json", json, "Print one JSON document");
        command->footer("Exit status: 0 no errors; 1 errors found; 2 bad input.\n");
    }

    ExitStatus Run() const {
        const std::vector<Finding> findings = Lint(device);
        if (json) PrintJson({{"format", kFindingsFormat}, {"findings", FindingsJson(findings)}});
        bool errors = false;
        for (const Finding& finding : findings) {
            if (!json) std::cout << FindingText(finding) << "\n";
            errors |= finding.severity == Severity::kError;
        }
        return errors ? kFound : kDone;
    }
};

// One side of a comparison; the command line has the common words and then those of each side.
struct DiffCommand {
    std::vector<std::string> words;
    BootArguments arguments;
    bool json = false;

    explicit DiffCommand(CLI::App* app) {
        CLI::App* command =
                app->add_subcommand("diff", "Boot twice and show which properties differ, and why");
        command->add_option("DEVICE", words,
                            "One device directory, or two; and steps, listed below")
                ->required();
        AddBootOptions(command, &arguments);
        command->add_flag("--json", json, "Print one JSON document");
        command->add_option("--a", "Options of the first boot only, up to --b or the end")
                ->type_name("OPTION...");
        command->add_option("--b", "Options of the second boot only, up to --a or the end")
                ->type_name("OPTION...");
    }

    nlohmann::json BootDevice(bool second) {
        std::vector<std::string> devices;
        for (const std::string& word : words) {
            (IsStepWord(word) ? arguments.steps : devices).push_back(word);
        }
        if (devices.size() > 2) throw InputError("diff: more than two devices are given");
        BootOptions options = OptionsOf(second ? devices.back() : devices.front(), arguments);
        options.plan.traced = true;
        return BootAndWarn(options);
    }
};

std::unique_ptr<CLI::App> MakeApp() {
    auto app = std::make_unique<CLI::App>(
            "Shows on a workstation what libtesvoextproperty will do on a phone, and why.",
            "extprop");
    app->require_subcommand(1);
    app->set_version_flag("--version", "extprop " EXTPROP_VERSION);
    app->footer(
            "Examples:\n"
            "  extprop boot phone\n"
            "  extprop boot phone early persist reboot early persist --props getprop.txt\n"
            "  extprop explain phone 'ro.product.*' --set sys.sim.switch.first=carrier1\n"
            "  extprop diff phone --a --set sys.region.switch.first=EU --b --set "
            "sys.region.switch.first=IN\n"
            "  extprop lint phone\n"
            "\nExit status: 0 done; 1 differences or faults found; 2 bad input, nothing done;\n"
            "3 the library crashed or hung. 'extprop COMMAND --help' tells more.\n");
    return app;
}

// Parses the words. Returns false if they ask for help, which is printed then.
bool Parse(CLI::App* app, std::vector<std::string> words) {
    std::reverse(words.begin(), words.end());  // as CLI11 takes them
    try {
        app->parse(words);
        return true;
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) throw;
        app->exit(error);
        return false;
    }
}

// The words of a comparison are those of both boots, but for what stands behind --a or --b.
ExitStatus RunDiff(const std::vector<std::string>& words) {
    std::vector<std::string> sides[2];
    std::vector<std::string>* only = nullptr;
    for (const std::string& word : words) {
        if (word == "--a" || word == "--b") {
            only = &sides[word == "--b"];
        } else if (only != nullptr) {
            only->push_back(word);
        } else {
            for (auto& side : sides) side.push_back(word);
        }
    }
    nlohmann::json reports[2];
    bool json = false;
    for (int i = 0; i < 2; ++i) {
        const std::unique_ptr<CLI::App> app = MakeApp();
        DiffCommand command(app.get());
        if (!Parse(app.get(), sides[i])) return kDone;
        reports[i] = command.BootDevice(i == 1);
        json |= command.json;
    }
    const nlohmann::json difference = Diff(reports[0], reports[1]);
    if (json) {
        PrintJson(difference);
    } else {
        std::cout << DifferenceText(difference);
    }
    if (StatusOf(reports[0]) != kDone || StatusOf(reports[1]) != kDone) return kLibraryFailed;
    return IsEmpty(difference) ? kDone : kFound;
}

ExitStatus Run(const std::vector<std::string>& words) {
    if (!words.empty() && words[0] == "diff") return RunDiff(words);
    const std::unique_ptr<CLI::App> app = MakeApp();
    BootCommand boot(app.get());
    ExplainCommand explain(app.get());
    const DiffCommand diff(app.get());  // for the help
    const LintCommand lint(app.get());
    if (!Parse(app.get(), words)) return kDone;
    if (app->got_subcommand("boot")) return boot.Run();
    return app->got_subcommand("explain") ? explain.Run() : lint.Run();
}

}  // namespace

int main(int argc, char** argv) {
    // What the library says where the tool itself calls it is no part of any answer.
    android::base::SetLogger([](auto&&...) {});
    try {
        const ExitStatus status = Run({argv + 1, argv + argc});
        std::cout.flush();
        return status;
    } catch (const std::exception& error) {
        std::cerr << "extprop: " << error.what() << "\n";
        return kBadInput;
    }
}
