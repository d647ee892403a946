// The tool, run as users and scripts run it.

#pragma once

#include <string>

#include <android-base/file.h>
#include <gtest/gtest.h>

struct Output {
    int status;  // the exit status
    std::string out;
    std::string err;
};

class ToolTest : public testing::Test {
  protected:
    // Gives this process, and so the tool, a small stack, on which endless imports crash sooner.
    ToolTest();

    // Runs the tool with the arguments, as a shell reads them, and waits for its end, without a
    // limit. If a signal ends it, the status is 128 and the signal's number. `redirections` come
    // after those to the returned output and may replace them.
    static Output Run(const std::string& arguments, const std::string& redirections = "");

    // Returns the path of a sample.
    static std::string Sample(const std::string& name);

    // Returns a path in a directory of the test's own; `path` begins with "/" or is empty.
    std::string Path(const std::string& path) const;

    // Writes or replaces a file in that directory, with its parent directories, and returns its
    // path.
    std::string Write(const std::string& path, const std::string& content) const;

  private:
    TemporaryDir directory_;
};
