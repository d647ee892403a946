#include "tool.h"

#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>

ToolTest::ToolTest() {
    chmod(directory_.path, 0755);
    const rlimit small = {512 * 1024, RLIM_INFINITY};
    setrlimit(RLIMIT_STACK, &small);
}

Output ToolTest::Run(const std::string& arguments, const std::string& redirections) {
    const TemporaryFile out;
    const TemporaryFile err;
    const std::string command = std::string(EXTPROP) + " " + arguments + " >" + out.path + " 2>" +
                                err.path + " " + redirections;
    Output output{WEXITSTATUS(system(command.c_str())), "", ""};
    android::base::ReadFileToString(out.path, &output.out);
    android::base::ReadFileToString(err.path, &output.err);
    return output;
}

std::string ToolTest::Sample(const std::string& name) {
    return SAMPLES_DIR "/" + name;
}

std::string ToolTest::Path(const std::string& path) const {
    return directory_.path + path;
}

std::string ToolTest::Write(const std::string& path, const std::string& content) const {
    std::filesystem::create_directories(std::filesystem::path(Path(path)).parent_path());
    std::ofstream(Path(path), std::ios::binary) << content;
    return Path(path);
}
