#include <unistd.h>

#include <iostream>

#include "commands/command.h"
#include "commands/options.h"
#include "coverage/idle.h"
#include "device/property_text.h"
#include "explain/explain.h"
#include "input_error.h"
#include "named_file.h"
#include "output/documents.h"
#include "output/page.h"
#include "output/text.h"

namespace extprop {

ExitStatus RunBoot(const Command& command, const std::vector<std::string>& words) {
    std::string device;
    BootArguments arguments;
    std::string page;
    bool json = false;
    bool quiet = false;
    bool verbose = false;

    CommandLine line = LineOf(command);
    line.AddArgument("DEVICE", &device, kDeviceHelp);
    line.AddArguments("STEP", &arguments.steps, "Steps of the boot, listed below");
    AddBootOptions(&line, &arguments);
    line.AddFlag("--json", &json, "Print one JSON document instead of text");
    line.AddFlag("--quiet,-q", &quiet, "Print the properties only");
    line.Exclude("--quiet", {"--json"});
    line.AddFlag("--verbose,-v", &verbose, "Also print every log line and opened file");
    line.AddOption("--html", "FILE", &page, "Also write a page for the browser to FILE");
    if (!line.Parse(words)) return kDone;

    BootOptions options = OptionsOf(device, arguments);
    Report report;
    if (page.empty()) {
        if (quiet) options.plan.detail = Detail::kNothing;
        PreparedDevice prepared(options);
        report = prepared.Boot();
        if (quiet && report.failure) {
            // Boots again with all events, to report the failure.
            options.plan.detail = Detail::kEverything;
            prepared.Reset(options);
            report = prepared.Boot();
        }
        NoteIdleWhatIfs(&prepared, options, &report);
    } else {
        const Explanation explanation = Explain(options, {kEverything}, &report);
        WriteOutput(page, InputsOf(device, arguments), ReportPage(report, explanation));
    }
    const ExitStatus status = Warn(report);
    if (json) {
        std::cout << DocumentText(report);
    } else if (!quiet) {
        PrintReport(report, verbose, std::cout);
    } else if (!report.failure) {
        PrintProperties(report.properties, isatty(STDOUT_FILENO) == 1, std::cout);
    }
    return status;
}

}  // namespace extprop
