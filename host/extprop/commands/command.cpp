#include "commands/command.h"

#include <stdlib.h>
#include <unistd.h>

#include <iostream>
#include <set>

#include "output/tell.h"
#include "output/text.h"

namespace extprop {

CommandLine LineOf(const Command& command) {
    return CommandLine(std::string("extprop ") + command.name, command.summary);
}

void PrintNotes(const std::vector<std::string>& notes) {
    static std::set<std::string> told;
    for (const std::string& note : notes) {
        if (told.insert(note).second) Tell("note: " + note);
    }
}

ExitStatus Warn(const Report& report) {
    PrintNotes(report.notes);
    if (!report.failure) return kDone;
    Tell(FailureText(*report.failure));
    return kLibraryFailed;
}

bool WantColours() {
    const char* refused = getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) == 1 && (refused == nullptr || refused[0] == '\0');
}

}  // namespace extprop
