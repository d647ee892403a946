// The tool, run as users and scripts run it.

#pragma once

#include <string>

#include <android-base/file.h>
#include <gtest/gtest.h>

struct Output {
    int status;
    std::string out;
    std::string err;
};

class ToolTest : public testing::Test {
  protected:
    // The tool has a small stack, on which endless imports crash sooner.
    ToolTest();

    // Runs the tool with the arguments and redirections, as a shell reads them.
    static Output Run(const std::string& arguments, const std::string& redirections = "");

    // Returns the path of a sample.
    static std::string Sample(const std::string& name);

    // Returns a path in a directory of the test's own.
    std::string Path(const std::string& path) const;

    // Writes a file in that directory and returns its path.
    std::string Write(const std::string& path, const std::string& content) const;

  private:
    TemporaryDir directory_;
};
