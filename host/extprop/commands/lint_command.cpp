#include <iostream>

#include "commands/command.h"
#include "lint/lint.h"

namespace extprop {

ExitStatus RunLint(const Command& command, const std::vector<std::string>& words) {
    constexpr int kFindingsFormat = 1;
    std::string device;
    bool json = false;

    const auto app = MakeApp(command);
    app->add_option("DEVICE", device, "Directory that looks like the device's root")->required();
    app->add_flag("--json", json, "Print one JSON document");
    app->footer("Exit status: 0 no errors; 1 errors found; 2 bad input.\n");
    if (!Parse(app.get(), words)) return kDone;

    const std::vector<Finding> findings = Lint(device);
    if (json) PrintJson({{"format", kFindingsFormat}, {"findings", FindingsJson(findings)}});
    bool errors = false;
    for (const Finding& finding : findings) {
        if (!json) std::cout << FindingText(finding) << "\n";
        errors |= finding.severity == Severity::kError;
    }
    return errors ? kFound : kDone;
}

}  // namespace extprop
