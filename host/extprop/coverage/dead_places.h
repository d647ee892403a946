// The files of a device that no boot reads.

#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "coverage/coverage.h"

namespace extprop {

enum class DeadKind {
    kSkippedFile,         // a file of a switch key whose name does not end in ".prop"
    kUnknownKind,         // in KEY's directory, but with the name of no kind of switch key
    kNoKind,              // in "properties" or KEY's directory, where only directories count
    kNestedDirectory,     // a directory in that of KEY's kind, which is not searched
    kMisspeltProperties,  // a directory in the place of "properties", under another name
    kUnsearchedRoot,      // a "properties" of a directory that is no partition root
    kMisspeltPartition,   // a directory with nearly the name of a partition
    kUnknownPartition,    // a directory like a partition, where the library does not look
    kUnreadFile,          // any other file
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
// paths. Leaves out files for which Coverage::IsUnknown(), such as those of a variant in whose boot
// the library crashes, and what these files import. The survey must be SurveyForDeadPlaces() of the
// same device, and Coverage::is_stopped() false.
std::vector<DeadPlace> DeadPlaces(const Survey& survey, const Coverage& coverage);

// Surveys the device, with the lines that DeadPlaces() needs. `limit` and what it throws are those
// of TakeSurvey().
Survey SurveyForDeadPlaces(const sandbox::Sandbox& root, std::chrono::seconds limit);

}  // namespace extprop
