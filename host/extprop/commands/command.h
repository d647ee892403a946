// The tool's commands: each has a source of its own and a line in the table of main.cpp.

#pragma once

#include <string>
#include <vector>

#include "boot/report.h"
#include "commands/command_line.h"

namespace extprop {

// How the tool's process ends, as `extprop --help` describes it.
enum ExitStatus { kDone = 0, kFound = 1, kBadInput = 2, kLibraryFailed = 3 };

struct Command {
    const char* name;
    const char* summary;
    // Runs the command with the words after its name, and prints its result on standard output.
    // Throws InputError for bad input, and another std::exception where the boots cannot be made;
    // main() prints either and returns kBadInput.
    ExitStatus (*run)(const Command& command, const std::vector<std::string>& words);
};

ExitStatus RunBoot(const Command& command, const std::vector<std::string>& words);
ExitStatus RunExplain(const Command& command, const std::vector<std::string>& words);
ExitStatus RunCompare(const Command& command, const std::vector<std::string>& words);
ExitStatus RunDiff(const Command& command, const std::vector<std::string>& words);
ExitStatus RunLint(const Command& command, const std::vector<std::string>& words);
ExitStatus RunCheck(const Command& command, const std::vector<std::string>& words);
ExitStatus RunMatrix(const Command& command, const std::vector<std::string>& words);

// Returns a command line with the command's name and summary, still without arguments and options.
CommandLine LineOf(const Command& command);

// Prints each note as PrintMessage() does, except those that this process has printed before.
void PrintNotes(const std::vector<std::string>& notes);

// Prints on standard error the report's notes and how the library failed, if it did. Returns
// kLibraryFailed in that case, else kDone.
ExitStatus Warn(const Report& report);

// Returns whether standard output is a terminal and NO_COLOR is unset or empty.
bool WantColours();

}  // namespace extprop
