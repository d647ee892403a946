#include "commands/command.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iostream>

#include <android-base/file.h>
#include <android-base/unique_fd.h>

#include "input_error.h"
#include "output/json.h"
#include "output/text.h"

namespace extprop {

CommandLine LineOf(const Command& command) {
    return CommandLine(std::string("extprop ") + command.name, command.summary);
}

void PrintJson(const nlohmann::json& document) {
    std::cout << JsonText(document);
}

void PrintNotes(const std::vector<std::string>& notes) {
    for (const std::string& note : notes) std::cerr << "extprop: note: " << note << "\n";
}

ExitStatus Warn(const Report& report) {
    PrintNotes(report.notes);
    if (!report.failure) return kDone;
    std::cerr << "extprop: " << FailureText(*report.failure) << "\n";
    return kLibraryFailed;
}

void WriteOutput(const std::string& path, const std::string& content) {
    struct stat status;
    const bool exists = lstat(path.c_str(), &status) == 0;
    if (exists && !S_ISREG(status.st_mode)) {
        const android::base::unique_fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666));
        if (!fd.ok() || !android::base::WriteStringToFd(content, fd)) {
            throw InputError(path + ": " + strerror(errno));
        }
        return;
    }
    const std::string unfinished = path + ".part";
    if (!android::base::WriteStringToFile(content, unfinished) ||
        rename(unfinished.c_str(), path.c_str()) != 0) {
        const std::string why = strerror(errno);
        unlink(unfinished.c_str());
        throw InputError(path + ": " + why);
    }
}

bool WantColours() {
    const char* refused = getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) == 1 && (refused == nullptr || refused[0] == '\0');
}

}  // namespace extprop
