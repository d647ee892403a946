// What the property files of a device hold, whether or not a boot loads them.

#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "boot/report.h"
#include "device/imports.h"
#include "sandbox.h"

namespace extprop {

struct SurveyedImport : ImportLine {
    // The files to which it can lead by values without slashes, as it names them then and as the
    // device's own.
    std::vector<std::pair<std::string, std::string>> targets;
};

struct SurveyedFile {
    std::string path;  // the device's own, or a link's that leads to a file of no other such name
    std::optional<std::string> source;  // what the link leads to
    std::vector<LineRead> lines;
    std::vector<SurveyedImport> imports;

    const std::string& own() const { return source ? *source : path; }
};

struct Survey {
    std::vector<SurveyedFile> files;  // those that imports alone name stand at the end
};

// Surveys the device as it is; of the lines only those whose names are `wanted`. Throws
// std::runtime_error if that takes longer than the limit.
Survey TakeSurvey(const sandbox::Sandbox& root,
                  const std::function<bool(const std::string& name)>& wanted,
                  std::chrono::seconds limit);

}  // namespace extprop
