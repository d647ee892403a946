#include <algorithm>
#include <iostream>
#include <optional>

#include <android-base/strings.h>
#include <nlohmann/json.hpp>

#include "commands/command.h"
#include "commands/options.h"
#include "input_error.h"
#include "lint/baseline.h"
#include "lint/lint.h"
#include "lint/rule_table.h"
#include "named_file.h"
#include "nearest.h"
#include "output/code_quality.h"
#include "output/documents.h"
#include "output/sarif.h"
#include "output/source_root.h"
#include "printable.h"

namespace extprop {

namespace {

struct LintArguments {
    std::string device;
    ImageArguments images;
    std::string sarif;
    std::string category;
    std::string code_quality;
    std::string source_root;
    std::string baseline;
    std::string new_baseline;
    std::string explained;
    bool json = false;
};

// Prints the texts of the rule with that name, or of all rules.
ExitStatus ExplainRules(const std::string& identifier) {
    constexpr char kAll[] = "all";
    constexpr size_t kNear = 3;
    std::vector<std::string> sections, known;
    for (const Rule& rule : kRules) {
        known.emplace_back(rule.identifier);
        if (identifier == rule.identifier || identifier == kAll) {
            sections.push_back(RuleSection(rule));
        }
    }
    if (sections.empty()) {
        throw InputError("lint --explain: unknown rule " + Quoted(identifier) +
                         Suggestion(Nearest(identifier, known, kNear)));
    }
    std::cout << android::base::Join(sections, "\n");
    return kDone;
}

void WriteReports(const std::vector<Finding>& findings, const LintArguments& arguments) {
    if (arguments.sarif.empty() && arguments.code_quality.empty()) return;
    const SourceRoot root = arguments.source_root.empty()
                                    ? SourceRoot(arguments.device)
                                    : SourceRoot(arguments.device, arguments.source_root);
    if (!arguments.sarif.empty()) {
        WriteOutput(arguments.sarif, InputsOf(arguments.device, arguments.images),
                    JsonText(SarifLog(findings, root, arguments.category)));
    }
    if (!arguments.code_quality.empty()) {
        WriteOutput(arguments.code_quality, InputsOf(arguments.device, arguments.images),
                    JsonText(CodeQualityReport(findings, root)));
    }
}

void Print(const LintReport& report, const LintArguments& arguments) {
    for (const Finding& finding : report.findings) std::cout << FindingText(finding) << "\n";
    Text text;
    for (const KnownFinding& fixed : report.fixed) {
        text << arguments.baseline << ":" << fixed.line << ": note: " << fixed.path << " has no "
             << fixed.identifier;
        if (!fixed.text.empty()) text << " in " << QuotedShort(fixed.text);
        text << " any more; --write-baseline removes it\n";
    }
    const std::string& baseline =
            arguments.baseline.empty() ? arguments.new_baseline : arguments.baseline;
    if (!baseline.empty()) {
        text << Count(report.known, "known finding", "known findings") << " in " << baseline
             << "\n";
    }
    std::cout << text.string();
}

}  // namespace

ExitStatus RunLint(const Command& command, const std::vector<std::string>& words) {
    LintArguments arguments;
    CommandLine line = LineOf(command);
    std::optional<std::string> device;
    line.AddArgument("DEVICE", &device, kDeviceHelp);
    AddImageOptions(&line, &arguments.images);
    line.AddFlag("--json", &arguments.json, "Print one JSON document instead of text");
    line.AddOption("--sarif", "FILE", &arguments.sarif,
                   "Write the findings to FILE as SARIF 2.1.0, for code-scanning services");
    line.AddOption("--category", "NAME", &arguments.category,
                   "The service's name for this run, which distinguishes several devices");
    line.AddOption("--code-quality", "FILE", &arguments.code_quality,
                   "Write the findings to FILE for services that compare the quality of code");
    line.AddOption("--source-root", "DIR", &arguments.source_root,
                   "Name files from DIR in what is written for services (default: the root of "
                   "the work tree that DEVICE lies in, or else DEVICE)");
    line.AddOption("--baseline", "FILE", &arguments.baseline,
                   "Only count the findings that are in FILE, and report those in it that are no "
                   "longer found");
    line.AddOption("--write-baseline", "FILE", &arguments.new_baseline,
                   "Write the findings to FILE instead of reporting them; with --baseline only "
                   "those that are in its file too");
    line.AddOption("--explain", "RULE", &arguments.explained,
                   "Print why what RULE finds hurts and how to mend it, with examples; all "
                   "explains every rule");
    line.AddFooter(
            "Exit status: 0 no errors but those of the baseline; 1 errors found, such as a DEVICE "
            "that is no\ndevice's root; 2 bad input.\n");
    if (!line.Parse(words)) return kDone;
    if (!arguments.explained.empty()) return ExplainRules(arguments.explained);
    if (!device) line.FailWithout("DEVICE");
    arguments.device = *device;

    std::vector<KnownFinding> baseline;
    if (!arguments.baseline.empty()) baseline = ReadBaseline(arguments.baseline, arguments.device);
    LintReport report;
    std::vector<Finding> findings =
            Lint(arguments.device, ImageOptionsOf(arguments.images), &report.notes);
    PrintNotes(report.notes);
    if (arguments.baseline.empty() && !arguments.new_baseline.empty()) baseline = Known(findings);
    baseline = TakeKnown(baseline, &findings, &report);
    if (!arguments.new_baseline.empty()) {
        WriteOutput(arguments.new_baseline, InputsOf(arguments.device, arguments.images),
                    BaselineText(baseline));
    }
    report.findings = Grouped(findings);

    WriteReports(report.findings, arguments);
    if (arguments.json) {
        std::cout << DocumentText(report);
    } else {
        Print(report, arguments);
    }
    const bool has_errors = std::any_of(
            report.findings.begin(), report.findings.end(),
            [](const Finding& finding) { return finding.severity == Severity::kError; });
    return has_errors ? kFound : kDone;
}

}  // namespace extprop
