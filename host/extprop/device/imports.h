// The imports of property files: to which properties an imported file's name refers, and to which
// files it can lead. Names come from untrusted files; a malformed one is one that the library
// cannot expand whatever properties are set.

#pragma once

#include <stddef.h>

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace extprop {

// An import line of a property file.
struct ImportLine {
    int line = 0;        // from 1
    std::string name;    // of the imported file, as written; never empty
    std::string filter;  // empty if there is none

    bool refers() const { return name.find('$') != std::string::npos; }
};

// By the device's own path of the file that has the imports.
using DeviceImports = std::map<std::string, std::vector<ImportLine>>;

// Returns the import lines of a property file's content.
std::vector<ImportLine> ImportsIn(std::string_view content);

// Returns the names of the properties to which a text, such as an import's file name, refers, each
// once, in their order; none if it is malformed.
std::vector<std::string> References(std::string_view text);

// The result of the library's expansion of a name with this process's properties (platform.h).
struct Expansion {
    std::string path;   // as the name leads, not looked up; empty if the expansion failed
    std::string fault;  // then the library's message, else empty
    std::string unset;  // then the property without a value, if that is the reason
};
Expansion Expand(const std::string& name);

// Returns the library's message on a malformed name, or "" for any other. Replaces this process's
// properties.
std::string SyntaxFault(const std::string& name);

// Choices of values, by reference, with which a name expands to a path. Values are never empty.
using ReferenceValues = std::map<std::string, std::string>;
struct LeadingValues {
    std::vector<ReferenceValues> choices;
    bool is_complete = true;  // there are no others
};

// Returns up to `most` choices for the name and path; none if there are none or the name is
// malformed. The path begins with a slash and doubles none; the name may do otherwise. There may be
// as many choices as the path's length to the power of the number of references, so the search also
// ends after a number of steps, and where `*steps`, from which each step is subtracted, is 0.
LeadingValues ValuesThatLead(const std::string& name, const std::string& path, size_t most,
                             size_t* steps);

// Returns the paths to which a name may lead if the values of its references have no slash. Each
// component with a reference exists; those without one are not looked up, so the path may be
// missing. Returns only "" for a malformed name. `names_in` returns the names in a directory, whose
// path ends in a slash, and none if there is no such directory. There may be as many paths as
// a directory has names, to the power of the number of references, if ".." lies between these.
using NamesIn = std::function<std::vector<std::string>(const std::string& directory)>;
std::vector<std::string> PathsLike(const std::string& name, const NamesIn& names_in);

}  // namespace extprop
