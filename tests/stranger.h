// The tool with untrusted input: whatever the input holds, no file outside changes, no control
// character or line break of it is printed, and the tool's time and memory are limited.

#pragma once

#include <string>
#include <vector>

#include "tool.h"

using Words = std::vector<std::string>;

class StrangerTest : public ToolTest {
  protected:
    StrangerTest();

    // Runs the tool with exactly these words, as the user, in the test's directory, and expects
    // what is promised for any input.
    Output RunWords(const Words& words, uid_t user = 0);

    std::string Content(const std::string& path) const;

    // Makes a link and its parent directories.
    void Link(const std::string& target, const std::string& path) const;

    // Makes a sparse file of 3 GB.
    void MakeHole(const std::string& path) const;

    // Runs a shell command in the test's directory.
    void Shell(const std::string& command) const;
};
