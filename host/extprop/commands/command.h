// The tool's commands: each has a source of its own and a line in the table of main.cpp.

#pragma once

#include <string>
#include <vector>

#include "boot/report.h"
#include "commands/command_line.h"

namespace extprop {

enum ExitStatus { kDone = 0, kFound = 1, kBadInput = 2, kLibraryFailed = 3 };

struct Command {
    const char* name;
    const char* summary;
    // Runs the command with the words behind its name. Throws InputError.
    ExitStatus (*run)(const Command& command, const std::vector<std::string>& words);
};

ExitStatus RunBoot(const Command& command, const std::vector<std::string>& words);
ExitStatus RunExplain(const Command& command, const std::vector<std::string>& words);
ExitStatus RunCompare(const Command& command, const std::vector<std::string>& words);
ExitStatus RunDiff(const Command& command, const std::vector<std::string>& words);
ExitStatus RunLint(const Command& command, const std::vector<std::string>& words);
ExitStatus RunCheck(const Command& command, const std::vector<std::string>& words);
ExitStatus RunMatrix(const Command& command, const std::vector<std::string>& words);

// Returns the command's line, to which the command adds what it takes.
CommandLine LineOf(const Command& command);

// Says the notes on standard error, each once in a run.
void PrintNotes(const std::vector<std::string>& notes);

// Says on standard error what the user should know of a boot besides its outcome, and returns the
// exit status that it gives.
ExitStatus Warn(const Report& report);

bool WantColours();

}  // namespace extprop
