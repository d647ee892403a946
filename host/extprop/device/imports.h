// Imports of property files: what the name of an imported file refers to, and where it can lead.

#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace extprop {

// An import line of a property file.
struct ImportLine {
    int line = 0;
    std::string name;  // of the imported file, as it is written
    std::string filter;

    bool refers() const { return name.find('$') != std::string::npos; }
};

// By the device's own path of the file that has them.
using DeviceImports = std::map<std::string, std::vector<ImportLine>>;

// Returns the import lines of a property file's content.
std::vector<ImportLine> ImportsIn(std::string_view content);

// Returns the names of the properties that a text such as an import's file name refers to, each
// once.
std::vector<std::string> References(std::string_view text);

// What the library makes of a name with the properties that this process has.
struct Expansion {
    std::string path;   // empty if it makes nothing of it
    std::string fault;  // then its words
    std::string unset;  // then the property that has no value, if that is why
};
Expansion Expand(const std::string& name);

// Returns the library's words on a name that no property makes right, or nothing. This process's
// properties are others then.
std::string SyntaxFault(const std::string& name);

// Returns each choice of values, by reference, with which the name becomes the path. A value is
// never empty.
using ReferenceValues = std::map<std::string, std::string>;
std::vector<ReferenceValues> ValuesThatLead(const std::string& name, const std::string& path);

// Returns the paths to which a name may lead, of those that `names_in` tells of for each directory,
// whatever the values of its references as long as these have no slash.
using NamesIn = std::function<std::vector<std::string>(const std::string& directory)>;
std::vector<std::string> PathsLike(const std::string& name, const NamesIn& names_in);

// Whether the name becomes the path for some values.
bool MayLeadTo(const std::string& name, const std::string& path);

}  // namespace extprop
