// Divides a property file into lines with their numbers, as the library's loader does.

#pragma once

#include <stdint.h>

#include <string>
#include <string_view>
#include <vector>

#include "../../budget.h"

namespace extprop {

// The largest property file that is read, in bytes.
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
    std::string_view name;   // of a property, may be empty; of an import the file, as written
    std::string_view value;  // of a property, may be empty; of an import the filter, if it has one
};

// Returns the lines of a property file's content, of any bytes and size, without empty ones and
// comments. With `filtered`, as in a load with a filter, an import line is like any other. The
// lines point into `content`, which must outlive them.
std::vector<PropertyLine> PropertyLines(std::string_view content, bool filtered = false);

// Returns whether the name passes an import's filter. A filter is one name; "ro.*" passes all that
// begin with "ro.", and an empty filter passes all. A zero byte ends a name or filter early.
bool PassesFilter(const std::string& name, const std::string& filter);

}  // namespace extprop
