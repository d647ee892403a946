// The tool's commands: each has a source of its own and a line in the table of main.cpp.

#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "boot/report.h"

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
ExitStatus RunDiff(const Command& command, const std::vector<std::string>& words);
ExitStatus RunLint(const Command& command, const std::vector<std::string>& words);
ExitStatus RunCheck(const Command& command, const std::vector<std::string>& words);
ExitStatus RunMatrix(const Command& command, const std::vector<std::string>& words);

// Returns a parser for the command's words.
std::unique_ptr<CLI::App> MakeApp(const Command& command);

// Parses the words. Returns false if they ask for help, which is printed then.
bool Parse(CLI::App* app, std::vector<std::string> words);

// Returns the document, a line at its end. Bytes that are not UTF-8 cannot stand in JSON and are
// replaced.
std::string JsonText(const nlohmann::json& document);

// Prints the document's text.
void PrintJson(const nlohmann::json& document);

// Says the notes on standard error.
void PrintNotes(const std::vector<std::string>& notes);

// Says on standard error what the user should know of a boot besides its outcome, and returns the
// exit status that it gives.
ExitStatus Warn(const Report& report);

// Writes the content to the file at `path`: whole or not at all where that is a regular file or
// nothing yet, and through whatever else is there. Throws InputError.
void WriteOutput(const std::string& path, const std::string& content);

bool WantColours();

}  // namespace extprop
