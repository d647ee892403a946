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
    // Runs the command with the words after its name. Throws InputError.
    ExitStatus (*run)(const Command& command, const std::vector<std::string>& words);
};

ExitStatus RunBoot(const Command& command, const std::vector<std::string>& words);
ExitStatus RunExplain(const Command& command, const std::vector<std::string>& words);
ExitStatus RunCompare(const Command& command, const std::vector<std::string>& words);
ExitStatus RunDiff(const Command& command, const std::vector<std::string>& words);
ExitStatus RunLint(const Command& command, const std::vector<std::string>& words);
ExitStatus RunCheck(const Command& command, const std::vector<std::string>& words);
ExitStatus RunMatrix(const Command& command, const std::vector<std::string>& words);

// Returns a command line for the command, to which it adds its arguments and options.
CommandLine LineOf(const Command& command);

// Prints the notes on standard error, each only once in a run.
void PrintNotes(const std::vector<std::string>& notes);

// Prints on standard error what the user should know of a boot besides its result. Returns the exit
// status for the boot.
ExitStatus Warn(const Report& report);

bool WantColours();

}  // namespace extprop
