#include "explain/diff.h"

#include <iostream>

#include "commands/command.h"
#include "commands/options.h"
#include "coverage/idle.h"
#include "input_error.h"
#include "output/documents.h"
#include "output/text.h"

namespace extprop {

namespace {

// Divides the words by boot: words after --a or --b are of that boot only, all others of both.
void Divide(const std::vector<std::string>& words, std::vector<std::string> (&sides)[2]) {
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
}

}  // namespace

ExitStatus RunDiff(const Command& command, const std::vector<std::string>& words) {
    std::vector<std::string> sides[2];
    Divide(words, sides);
    Report reports[2];
    Tracer tracers[2];
    bool json = false;
    ExitStatus status = kDone;
    for (int i = 0; i < 2; ++i) {
        std::vector<std::string> devices_and_steps;
        BootArguments arguments;
        CommandLine line = LineOf(command);
        line.AddArguments("DEVICE", &devices_and_steps,
                          "One device, a directory or file, or two; and steps, listed below",
                          CommandLine::kOneAtLeast);
        AddBootOptions(&line, &arguments);
        line.AddFlag("--json", &json, "Print one JSON document instead of text");
        line.AddToHelp("--a", "OPTION...",
                       "What follows, up to --b or the end, holds for the first boot only");
        line.AddToHelp("--b", "OPTION...",
                       "What follows, up to --a or the end, holds for the second boot only");
        if (!line.Parse(sides[i])) return kDone;

        const std::vector<std::string> devices = TakeSteps(devices_and_steps, &arguments);
        if (devices.empty()) line.FailWithout("DEVICE");
        if (devices.size() > 2) throw InputError("diff: more than two devices are given");
        arguments.other_device = i == 1 ? devices.front() : devices.back();
        const BootOptions options = OptionsOf(i == 1 ? devices.back() : devices.front(), arguments);
        PreparedDevice device(options);
        reports[i] = device.Boot(&tracers[i], [](const std::string&) { return true; });
        NoteIdleWhatIfs(&device, options, &reports[i]);
        status = std::max(status, Warn(reports[i]));
    }
    const Difference difference = Diff(reports[0], tracers[0], reports[1], tracers[1]);
    if (json) {
        std::cout << DocumentText(difference);
    } else {
        std::cout << DifferenceText(difference);
    }
    if (status != kDone) return status;
    return difference.empty() ? kDone : kFound;
}

}  // namespace extprop
