#include "commands/command.h"

#include <stdlib.h>
#include <unistd.h>

#include <iostream>
#include <set>

#include "output/standard_error.h"
#include "output/text.h"

namespace extprop {

CommandLine LineOf(const Command& command) {
    return CommandLine(std::string("extprop ") + command.name, command.summary);
}

void PrintNotes(const std::vector<std::string>& notes) {
    static std::set<std::string> printed;
    for (const std::string& note : notes) {
        if (printed.insert(note).second) PrintMessage("note: " + note);
    }
}

ExitStatus Warn(const Report& report) {
    PrintNotes(report.notes);
    if (!report.failure) return kDone;
    PrintMessage(FailureText(*report.failure));
    return kLibraryFailed;
}

bool WantColours() {
    const char* refused = getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) == 1 && (refused == nullptr || refused[0] == '\0');
}

}  // namespace extprop
