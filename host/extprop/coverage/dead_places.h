// The files of a device that no boot reads.

#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "coverage/coverage.h"

namespace extprop {

enum class DeadKind {
    kSkippedFile,         // in a switch key's directory, without the suffix
    kUnknownKind,         // a directory in which another kind's name is looked for
    kNoKind,              // a directory in which only directories are looked for
    kNestedDirectory,     // a directory in which nothing is looked for
    kMisspeltProperties,  // a directory in which "properties" is looked for
    kUnsearchedRoot,      // a directory's "properties"
    kMisspeltPartition,
    kUnknownPartition,
    kUnreadFile,
};

// Reasons that lint's own rules report too.
inline constexpr char kOnlyPropFiles[] =
        "a switch key's files are loaded only if their names end in '.prop'";
inline constexpr char kNoSuchFileRead[] = "the library reads no file of this name";

struct DeadPlace {
    DeadKind kind;
    std::string path;    // of a file, or of a directory that stands for the files in it
    std::string reason;  // a sentence without its full stop
};

// Returns what no boot reads on the library's partitions, each place once, in the order of the
// paths. The survey must be SurveyForDeadPlaces() of the same device, and the coverage not stopped:
// otherwise it is unknown what no boot reads.
std::vector<DeadPlace> DeadPlaces(const Survey& survey, const Coverage& coverage);

// Surveys the device for DeadPlaces(), with the lines that it takes. Throws as TakeSurvey does.
Survey SurveyForDeadPlaces(const sandbox::Sandbox& root, std::chrono::seconds limit);

}  // namespace extprop
