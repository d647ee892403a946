// The tool over what strangers have made: whatever is in it, nothing outside changes, no character
// of theirs moves a terminal or begins a line, and the tool ends soon and small.

#pragma once

#include <string>
#include <vector>

#include "tool.h"

using Words = std::vector<std::string>;

class StrangerTest : public ToolTest {
  protected:
    StrangerTest();

    // Runs the tool with exactly these words, in the test's directory, for the user, and holds it
    // to what is promised of any input.
    Output RunWords(const Words& words, uid_t user = 0);

    std::string Content(const std::string& path) const;

    // Makes a link, and the directories that lead to it.
    void Link(const std::string& target, const std::string& path) const;

    // Makes a file of 3 GB that takes no room.
    void MakeHole(const std::string& path) const;

    // Runs a command of the shell in the test's directory.
    void Shell(const std::string& command) const;
};
