#include "compare/compare.h"

#include <iostream>

#include "commands/command.h"
#include "commands/options.h"
#include "input_error.h"
#include "named_file.h"
#include "output/compare_text.h"
#include "output/documents.h"
#include "output/page.h"
#include "output/standard_error.h"

namespace extprop {

ExitStatus RunCompare(const Command& command, const std::vector<std::string>& words) {
    std::string device;
    std::string phone_path;
    std::vector<std::string> names_and_steps;
    BootArguments arguments;
    std::string page;
    bool json = false;
    bool verbose = false;

    CommandLine line = LineOf(command);
    line.AddArgument("DEVICE", &device, kDeviceHelp);
    line.AddArgument("PHONE", &phone_path,
                     "What the phone reports, in any form that --props takes");
    line.AddArguments("NAME", &names_and_steps,
                      "Names of properties, or patterns such as 'ro.product.*', instead of all; "
                      "and steps, listed below");
    AddBootOptions(&line, &arguments);
    line.AddFlag("--json", &json, "Print one JSON document instead of text");
    line.AddFlag("--verbose,-v", &verbose, "Also list what is only counted otherwise");
    line.Exclude("--verbose", {"--json"});
    line.AddOption("--html", "FILE", &page, "Also write a page for the browser to FILE");
    if (!line.Parse(words)) return kDone;

    std::vector<std::string> patterns = TakeSteps(names_and_steps, &arguments);
    if (patterns.empty()) patterns = {kEverything};

    const Phone phone = ReadPhone(phone_path, {device});
    PrintNotes(phone.notes);
    Report report;
    const Comparison comparison =
            Compare(OptionsOf(device, arguments), phone, phone_path, patterns, &report);
    const ExitStatus status = Warn(report);
    if (!page.empty()) {
        std::vector<std::string> inputs = InputsOf(device, arguments);
        inputs.push_back(phone_path);
        WriteOutput(page, inputs, ComparisonPage(comparison));
    }
    if (json) {
        std::cout << DocumentText(comparison);
    } else {
        std::cout << ComparisonText(comparison, verbose);
    }
    if (status != kDone) return status;
    for (const std::string& pattern : comparison.unknown) {
        PrintMessage("neither the phone nor the device's boot has '" + pattern + "'" +
                     (phone.only_persistent ? " among the persistent properties, all that " +
                                                      phone_path + " holds"
                                            : ""));
    }
    if (!comparison.unknown.empty()) return kBadInput;
    return comparison.is_alike() ? kDone : kFound;
}

}  // namespace extprop
