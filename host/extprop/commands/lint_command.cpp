#include <iostream>

#include "commands/command.h"
#include "commands/options.h"
#include "lint/lint.h"
#include "output/json.h"
#include "output/sarif.h"

namespace extprop {

ExitStatus RunLint(const Command& command, const std::vector<std::string>& words) {
    constexpr int kFindingsFormat = 1;
    std::string device;
    std::string sarif;
    std::string slot;
    bool json = false;

    const auto app = MakeApp(command);
    app->add_option("DEVICE", device, "Directory that looks like the device's root")->required();
    AddSlotOption(app.get(), &slot);
    app->add_flag("--json", json, "Print one JSON document");
    app->add_option("--sarif", sarif, "Write the findings to FILE for code-scanning services")
            ->type_name("FILE");
    app->footer(
            "Exit status: 0 no errors; 1 errors found, such as a DEVICE that is no device's root; "
            "2 bad\ninput.\n");
    if (!Parse(app.get(), words)) return kDone;

    std::vector<std::string> notes;
    const std::vector<Finding> findings = Lint(device, slot[0], &notes);
    PrintNotes(notes);
    if (json) {
        PrintJson({{"format", kFindingsFormat},
                   {"notes", notes},
                   {"findings", FindingsJson(findings)}});
    }
    if (!sarif.empty()) WriteOutput(sarif, JsonText(SarifLog(device, findings)));
    bool errors = false;
    for (const Finding& finding : findings) {
        if (!json) std::cout << FindingText(finding) << "\n";
        errors |= finding.severity == Severity::kError;
    }
    return errors ? kFound : kDone;
}

}  // namespace extprop
