#include <chrono>
#include <filesystem>
#include <iostream>

#include "budget.h"
#include "commands/command.h"
#include "commands/matrix_options.h"
#include "commands/options.h"
#include "device/phone.h"
#include "device_files.h"
#include "explain/explain.h"
#include "input_error.h"
#include "named_file.h"
#include "output/check_report.h"
#include "output/compare_text.h"
#include "output/documents.h"
#include "output/junit.h"
#include "output/markdown.h"
#include "output/standard_error.h"
#include "output/text.h"
#include "printable.h"

namespace extprop {

namespace {

constexpr char kFormatHelp[] =
        "An expectations file:\n"
        "    steps: [early, persist]            # the default\n"
        "    expectations:\n"
        "      - name: Every carrier has a name\n"
        "        variants: {sim-first: '*'}     # all: each axis by itself; {}: the "
        "device as it is\n"
        "        properties:\n"
        "          ro.carrier.name: {matches: '[a-z]+'}\n"
        "      - variants: {region: [EU, IN], sim-first: north}\n"
        "        complete: true                 # a property without an expectation is unset\n"
        "        properties:\n"
        "          ro.locale: en-GB             # also {equals: en-GB}\n"
        "          ro.debug: {set: false}\n"
        "          ro.region.name: {from: /mnt/vendor/my_region/build.prop}\n";

// Throws InputError if parts of the device could not be read: then a check proves nothing.
void CheckReadable(const sandbox::Sandbox& root) {
    std::vector<std::string> errors;
    for (const std::string& path : root.Unreadable()) {
        errors.push_back("check: " + path + sandbox::kDeniedToUser + ", so there is no result");
    }
    if (!errors.empty()) throw InputError(errors);
}

// Throws InputError if the file was not recorded, but written by hand.
void CheckRecorded(const std::string& file, const std::string& device) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) return;
    const std::string content = ReadInput(file, {device}, limits::kText);
    if (content.empty() || WasRecorded(content)) return;
    throw InputError(file +
                     ": this file was not recorded, but written by hand; --force replaces it");
}

ExitStatus Record(const std::string& device, const std::string& file,
                  const BootArguments& arguments, int jobs) {
    Matrix matrix(OptionsOf(device, arguments), jobs);
    const Summary summary =
            Collect(&matrix, ChosenVariants(matrix.space(), {})).Summarize({kEverything});
    PrintNotes(matrix.base().notes);
    CheckReadable(matrix.root());
    for (const SummaryVariant& variant : summary.variants) {
        if (!variant.failure) continue;
        PrintMessage("nothing is recorded; " + VariantText(variant.variant) + ": " +
                     FailureText(*variant.failure));
        return kLibraryFailed;
    }
    WriteOutput(file, InputsOf(device, arguments), RecordedExpectations(summary, arguments.steps));
    Text text;
    text << file << ": " << summary.properties.size() << " properties of "
         << summary.variants.size() << " variants\n";
    std::cout << text.string();
    return kDone;
}

// Returns the phone's variant, and warns of values that the device cannot have. Adds the phone's
// persistent properties to the options.
PhoneVariant VariantOf(const Phone& phone, BootOptions* options) {
    PreparedDevice device(*options);
    PhoneVariant is = FindPhoneVariant(phone, *options, &device);
    PrintNotes(is.notes);
    for (const MissingValue& missing : is.missing) PrintMessage("note: " + WarningText(missing));
    Add({{}, is.stored, {}}, options);
    return is;
}

}  // namespace

ExitStatus RunCheck(const Command& command, const std::vector<std::string>& words) {
    std::string device;
    std::vector<std::string> files_and_steps;
    BootArguments arguments;
    int jobs = 1;
    bool record = false;
    bool force = false;
    bool json = false;
    std::string junit;
    std::string markdown;
    std::optional<std::string> phone_path;
    const auto started = std::chrono::system_clock::now();

    CommandLine line = LineOf(command);
    line.AddArgument("DEVICE", &device, kDeviceHelp);
    line.AddArguments("EXPECTATIONS", &files_and_steps,
                      "YAML files with what is expected; and steps, instead of those in the files",
                      CommandLine::kOneAtLeast);
    AddBootOptions(&line, &arguments);
    AddJobsOption(&line, &jobs);
    line.AddFlag("--record", &record,
                 "Write the file EXPECTATIONS so that it expects what the device does today");
    line.AddFlag("--force", &force, "With --record: also replace a file that was not recorded");
    line.AddFlag("--json", &json, "Print one JSON document instead of text");
    line.AddOption("--junit", "FILE", &junit, "Also write a JUnit report to FILE");
    line.AddOption("--markdown", "FILE", &markdown,
                   "Also write a summary for the page of a reviewed change to FILE");
    line.AddOption("--phone", "PHONE", &phone_path,
                   "Compare a phone, in any form that --props takes, with what is expected of the "
                   "phone's variant");
    line.Exclude("--record", {"--json", "--junit", "--markdown", "--phone"});
    line.AddFooter(kFormatHelp);
    if (!line.Parse(words)) return kDone;

    const std::vector<std::string> files = TakeSteps(files_and_steps, &arguments);
    if (files.empty()) line.FailWithout("EXPECTATIONS");
    if (record && files.size() > 1) throw InputError("check: --record writes one file");
    if (force && !record) throw InputError("check: --force goes with --record");
    if (record && !force) CheckRecorded(files.front(), device);
    if (record) return Record(device, files.front(), arguments, jobs);

    std::vector<Expectations> read;
    std::vector<std::string> errors;
    for (const std::string& file : files) {
        try {
            read.push_back(ReadExpectations(file, device));
        } catch (const InputError& error) {
            errors.insert(errors.end(), error.lines().begin(), error.lines().end());
        }
    }
    if (!errors.empty()) throw InputError(errors);

    CheckResult result;
    result.phone = phone_path;
    Phone phone;
    if (phone_path) phone = ReadPhone(*phone_path, {device});
    PrintNotes(phone.notes);
    for (const Expectations& expectations : read) {
        BootArguments own = arguments;
        if (own.steps.empty()) own.steps = expectations.steps;
        BootOptions options = OptionsOf(device, own);
        CheckedPhone checked{phone.properties, {}};
        if (phone_path) checked.is = VariantOf(phone, &options);
        Matrix matrix(options, jobs);
        PrintNotes(matrix.base().notes);
        Checker checker(expectations, &matrix, phone_path ? &checked : nullptr);
        BootWithProgress(&matrix, checker.variants(), [&](size_t number, const Outcome& outcome) {
            checker.Add(number, outcome);
        });
        checker.Finish(&result);
        CheckReadable(matrix.root());
    }
    if (phone_path && result.cases.empty()) {
        throw InputError(*phone_path + ": no expectation is about this phone's variant");
    }
    PrintNotes(result.notes);
    std::vector<std::string> inputs = InputsOf(device, arguments);
    inputs.insert(inputs.end(), files.begin(), files.end());
    inputs.push_back(phone_path.value_or(""));
    if (!junit.empty()) WriteOutput(junit, inputs, JunitReport(result, started));
    if (!markdown.empty()) WriteOutput(markdown, inputs, CheckMarkdown(result));
    if (json) {
        std::cout << DocumentText(result);
    } else {
        std::cout << CheckText(result);
    }
    for (const CheckedCase& checked : result.cases) {
        if (!checked.unmet.empty()) return kFound;
    }
    return kDone;
}

}  // namespace extprop
