#include <iostream>

#include <nlohmann/json.hpp>

#include "commands/command.h"
#include "commands/options.h"
#include "lint/lint.h"
#include "named_file.h"
#include "output/json.h"
#include "output/sarif.h"

namespace extprop {

ExitStatus RunLint(const Command& command, const std::vector<std::string>& words) {
    constexpr int kFindingsFormat = 1;
    std::string device;
    std::string sarif;
    std::string slot;
    bool json = false;

    CommandLine line = LineOf(command);
    line.AddArgument("DEVICE", &device, "Directory that looks like the device's root");
    AddSlotOption(&line, &slot);
    line.AddFlag("--json", &json, "Print one JSON document");
    line.AddOption("--sarif", "FILE", &sarif,
                   "Write the findings to FILE for code-scanning services");
    line.AddFooter(
            "Exit status: 0 no errors; 1 errors found, such as a DEVICE that is no device's root; "
            "2 bad\ninput.\n");
    if (!line.Parse(words)) return kDone;

    std::vector<std::string> notes;
    const std::vector<Finding> findings = Lint(device, slot[0], &notes);
    PrintNotes(notes);
    if (json) {
        PrintJson({{"format", kFindingsFormat},
                   {"notes", notes},
                   {"findings", FindingsJson(findings)}});
    }
    if (!sarif.empty()) WriteOutput(sarif, device, JsonText(SarifLog(device, findings)));
    bool errors = false;
    for (const Finding& finding : findings) {
        if (!json) std::cout << FindingText(finding) << "\n";
        errors |= finding.severity == Severity::kError;
    }
    return errors ? kFound : kDone;
}

}  // namespace extprop
