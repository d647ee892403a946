// The tool with untrusted input: whatever the input holds, no file outside changes, no control
// character or line break of it is printed, and the tool's time and memory are limited.

#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tool.h"

using Words = std::vector<std::string>;

class StrangerTest : public ToolTest {
  protected:
    StrangerTest();

    // Runs the tool with exactly these words, without a shell, in the test's directory, and expects
    // what is promised for any input. If `user` is not 0, root runs it as that user. A tool that a
    // signal ends fails the test, as does one that is killed after five minutes.
    Output RunWords(const Words& words, uid_t user = 0);

    // Returns the content of a file, "" if it cannot be read. Paths here are below the test's
    // directory and begin with "/".
    std::string Content(const std::string& path) const;

    // Makes a link at `path`, and its parent directories. `target` is its text, as it is.
    void Link(const std::string& target, const std::string& path) const;

    // Makes a sparse file of 3 GiB.
    void MakeHole(const std::string& path) const;

    // Runs a shell command in the test's directory; if it fails, so does the test.
    void Shell(const std::string& command) const;
};
