#include "explain/explain.h"

#include <iostream>

#include "commands/command.h"
#include "commands/options.h"
#include "input_error.h"
#include "named_file.h"
#include "output/documents.h"
#include "output/page.h"
#include "output/standard_error.h"
#include "output/text.h"

namespace extprop {

ExitStatus RunExplain(const Command& command, const std::vector<std::string>& words) {
    std::string device;
    std::vector<std::string> names_and_steps;
    BootArguments arguments;
    std::string page;
    std::vector<std::string> values;
    bool all = false;
    bool json = false;
    bool verbose = false;

    CommandLine line = LineOf(command);
    line.AddArgument("DEVICE", &device, kDeviceHelp);
    line.AddArguments("NAME", &names_and_steps,
                      "Names of properties, or patterns such as 'ro.product.*'; and steps, listed "
                      "below");
    line.AddFlag("--all", &all, "Explain every property");
    line.AddOption(
            "--value", "VALUE", &values,
            "Print which lines have this value, of the names that are given or of any property");
    AddBootOptions(&line, &arguments);
    line.AddFlag("--json", &json, "Print one JSON document instead of text");
    line.AddFlag("--verbose,-v", &verbose, "Also list the lines that are only counted otherwise");
    line.AddOption("--html", "FILE", &page,
                   "With --all: also write a page for the browser to FILE");
    if (!line.Parse(words)) return kDone;

    std::vector<std::string> patterns = TakeSteps(names_and_steps, &arguments);
    if (all) patterns.insert(patterns.begin(), kEverything);
    if (patterns.empty() && values.empty()) {
        line.FailWithout("NAME, --all or --value");
    }
    if (patterns.empty()) patterns = {kEverything};
    if (!page.empty() && !all) throw InputError("explain: --html goes with --all");

    Report report;
    const Explanation explanation =
            Explain(OptionsOf(device, arguments), patterns, &report, values);
    const ExitStatus status = Warn(report);
    if (!page.empty())
        WriteOutput(page, InputsOf(device, arguments), ReportPage(report, explanation));
    if (json) {
        PrintJson(explanation, std::cout);
    } else {
        std::cout << ExplanationText(explanation, WantColours(), verbose);
    }
    for (size_t i = 0; i < explanation.unknown.size(); ++i) {
        PrintMessage("no property file or step has '" + explanation.unknown[i] + "'" +
                     explanation.hints[i]);
    }
    return status == kDone && !explanation.unknown.empty() ? kBadInput : status;
}

}  // namespace extprop
