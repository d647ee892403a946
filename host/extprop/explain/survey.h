// What the property files of a device hold, whether or not a boot loads them, and what makes the
// library read each.

#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "boot/report.h"
#include "device/places.h"
#include "sandbox.h"

namespace extprop {

struct SurveyedImport {
    int line = 0;
    std::string text;  // the file as it is written, with "$" for "$$"
    std::string filter;
    // The files to which it can lead by values without slashes, as it names them then and as the
    // device's own.
    std::vector<std::pair<std::string, std::string>> targets;
};

struct SurveyedFile {
    std::string path;  // the device's own, or a link's that leads to a file of no other such name
    std::optional<std::string> source;  // what the link leads to
    std::vector<LineRead> lines;
    std::vector<SurveyedImport> imports;
    std::vector<Reading> readings;
};

struct Survey {
    std::vector<SurveyedFile> files;
    std::set<std::string> references;   // the properties that imports refer to
    std::set<std::string> switch_keys;  // older keys that some file maps to new ones
    std::string unmapped_key;           // an old nv key that no file maps
    std::string nv_target;              // what the old nv key is mapped to, if there is one
    // Either keeps the first step persist from migrating an old key.
    bool has_first_key = false;
    bool has_mark = false;
    // What the installing service's messages have mounted, and over what: the device's own paths.
    std::vector<std::string> mounted_sources;
    std::optional<std::string> package_target;
    std::optional<std::string> module_target;
};

// Whether an import's text becomes the path for some values of the properties in it. These may have
// slashes, so that it leads farther than to the import's targets.
bool MayLeadTo(const std::string& text, const std::string& path);

// Why there is no survey.
inline constexpr char kNoSurvey[] =
        "the library does not come back from the mapping files or the installing service's "
        "messages";

// Surveys the device as it is before a boot; of the lines only those whose names are `wanted`.
// Returns nothing where the library, which is asked about mapping files, does not come back in
// time.
std::optional<Survey> TakeSurvey(const sandbox::Sandbox& root,
                                 const std::function<bool(const std::string& name)>& wanted,
                                 std::chrono::seconds limit);

}  // namespace extprop
