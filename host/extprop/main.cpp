// extprop: shows which properties a phone's boot will set, and why.

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <exception>
#include <iostream>
#include <new>
#include <string>
#include <vector>

#include <android-base/logging.h>

#include "boot/ending.h"
#include "budget.h"
#include "commands/command.h"
#include "input_error.h"
#include "nearest.h"
#include "output/standard_error.h"
#include "process.h"
#include "product.h"
#include "reader.h"

namespace {

using namespace extprop;

// A new command is a source in commands/ and a line here.
constexpr Command kCommands[] = {
        {"boot", "Boot a device and print what the library does, step by step", RunBoot},
        {"explain", "Boot, and print where the values of properties come from", RunExplain},
        {"diff", "Boot twice and print which properties differ, and why", RunDiff},
        {"compare",
         "Boot as the phone that PHONE describes, and print where the two differ, and why",
         RunCompare},
        {"matrix", "Boot every variant and print which values properties have, and for whom",
         RunMatrix},
        {"check", "Compare every variant, or a phone, with what YAML files expect", RunCheck},
        {"lint", "Report what would hurt on a phone, and what no phone reads", RunLint},
};

constexpr char kExamples[] =
        "Examples:\n"
        "  extprop boot phone\n"
        "  extprop boot phone early persist reboot early persist --props getprop.txt\n"
        "  extprop explain phone 'ro.product.*' --set sys.sim.switch.first=carrier1\n"
        "  extprop diff phone --a --region EU --b --region IN\n"
        "  extprop compare phone bugreport.zip\n"
        "  extprop lint phone\n"
        "\n"
        "Exit status: 0 done; 1 differences or faults found; 2 bad input, nothing done, or the\n"
        "result could not be written; 3 the library crashed, hung or met a limit.\n"
        "'extprop COMMAND --help' prints the options and steps of a command.\n";

std::string Unknown(const std::string& word) {
    constexpr size_t kNear = 2;
    std::vector<std::string> names;
    for (const Command& command : kCommands) names.emplace_back(command.name);
    const std::string nearest = Nearest(word, names, kNear);
    const std::string text = "unknown command '" + word + "'";
    return text + (nearest.empty() ? "; see extprop --help" : Suggestion(nearest));
}

ExitStatus Run(const std::vector<std::string>& words) {
    for (const Command& command : kCommands) {
        if (!words.empty() && words[0] == command.name) {
            return command.run(command, {words.begin() + 1, words.end()});
        }
    }
    if (!words.empty() && words[0].rfind('-', 0) != 0) throw InputError(Unknown(words[0]));
    CommandLine line("extprop", "Shows which properties a phone's boot will set, and why.");
    line.AddVersion(std::string("extprop ") + kVersion);
    line.AddFooter(kExamples);
    for (const Command& command : kCommands) line.AddCommand(command.name, command.summary);
    line.Parse(words);
    return kDone;
}

// Shows how much was unpacked so far, once that has taken a second.
void ShowUnpacked(uint64_t bytes) {
    using std::chrono::steady_clock;
    static const steady_clock::time_point start = steady_clock::now();
    static StatusLine line;
    if (bytes == 0) return line.Show("");
    if (!StatusLine::IsSeen() || steady_clock::now() - start < std::chrono::seconds(1)) return;
    line.Show("unpacking: " + std::to_string(bytes >> 20) + " MiB");
}

// Opens /dev/null for standard streams that are closed, so that no other file gets their
// descriptors.
void KeepStandardFiles() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) == -1) open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

}  // namespace

int main(int argc, char** argv) {
    KeepStandardFiles();
    // If SIGCHLD were ignored, as a caller may have it, the exit statuses of boots would be lost.
    signal(SIGCHLD, SIG_DFL);
    sandbox::LimitMemory(limits::kToolMemory);
    // Drops log lines from the tool's own calls of the library; those of boots are reported.
    android::base::SetLogger([](auto&&...) {});
    images::Reader::ShowProgress(ShowUnpacked);
    try {
        const ExitStatus status = Run({argv + 1, argv + argc});
        errno = 0;
        if (!std::cout.flush()) {
            throw InputError("the result cannot be written: " +
                             std::string(strerror(errno == 0 ? EIO : errno)));
        }
        return status;
    } catch (const InputError& error) {
        for (const std::string& line : error.lines()) PrintMessage(line);
    } catch (const std::bad_alloc&) {
        PrintMessage(MemoryError());
    } catch (const std::exception& error) {
        PrintMessage(error.what());
    }
    return kBadInput;
}
