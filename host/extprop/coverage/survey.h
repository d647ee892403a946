// Surveys the lines of a device's property files, whether or not a boot loads them.

#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "boot/report.h"
#include "device/imports.h"
#include "sandbox.h"

namespace extprop {

struct SurveyedImport : ImportLine {
    // The regular files to which it can lead if the references' values have no slash, or if their
    // defaults hold: the path by which the import names the file, and the device's own path.
    std::vector<std::pair<std::string, std::string>> targets;
};

struct SurveyedFile {
    std::string path;  // the device's own path, or of a link to a file whose own path the survey
                       // does not have
    std::optional<std::string> source;  // the link's target
    std::vector<LineRead> lines;
    std::vector<SurveyedImport> imports;

    const std::string& own() const { return source ? *source : path; }
};

struct Survey {
    std::vector<SurveyedFile> files;  // files that only imports name are last
};

// Surveys the device as it is. Of the lines only those whose names are `wanted` are returned; that
// function runs in another process. Leaves out files that cannot be read, and does not search
// partitions that are unpacked as a whole; a file larger than kMostBytes has no lines. Throws
// std::runtime_error if AskInside() returns nothing, and as that does.
Survey TakeSurvey(const sandbox::Sandbox& root,
                  const std::function<bool(const std::string& name)>& wanted,
                  std::chrono::seconds limit);

}  // namespace extprop
