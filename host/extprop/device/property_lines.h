// The lines of a property file with their numbers, as the library's loader divides them.

#pragma once

#include <stdint.h>

#include <string>
#include <string_view>
#include <vector>

#include "../../budget.h"

namespace extprop {

// Far more bytes than a property file has, and few enough to be read.
inline constexpr int64_t kMostBytes = limits::kPropertyFile;

struct PropertyLine {
    enum Kind {
        kProperty,  // name=value
        kImport,    // import file [filter]
        kOther,     // neither: the loader skips it
    };
    int number;  // from 1
    Kind kind;
    std::string_view text;   // without the white space around it
    std::string_view name;   // of a property; of an import the file as it is written
    std::string_view value;  // of a property; of an import the filter, empty if there is none
};

// Divides the content of a property file into its lines, without empty ones and comments. With
// `filtered`, as for a loader that was given a filter, an import line is a line like any other.
// The views are into `content`.
std::vector<PropertyLine> PropertyLines(std::string_view content, bool filtered = false);

// Whether the loader keeps the name under an import's filter, which is empty for none.
bool PassesFilter(const std::string& name, const std::string& filter);

}  // namespace extprop
