// The imports of property files: to which properties an imported file's name refers, and to which
// files it can lead.

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
    std::string name;  // of the imported file, as written
    std::string filter;

    bool refers() const { return name.find('$') != std::string::npos; }
};

// By the device's own path of the file that has the imports.
using DeviceImports = std::map<std::string, std::vector<ImportLine>>;

// Returns the import lines of a property file's content.
std::vector<ImportLine> ImportsIn(std::string_view content);

// Returns the names of the properties to which a text, such as an import's file name, refers, each
// once.
std::vector<std::string> References(std::string_view text);

// The result of the library's expansion of a name with this process's properties.
struct Expansion {
    std::string path;   // empty if the expansion failed
    std::string fault;  // then the library's message
    std::string unset;  // then the property without a value, if that is the reason
};
Expansion Expand(const std::string& name);

// Returns the library's message on a name that it cannot expand whatever properties are set, or ""
// if the name is well-formed. Replaces this process's properties.
std::string SyntaxFault(const std::string& name);

// Returns each choice of values, by reference, with which the name expands to the path. Values are
// never empty.
using ReferenceValues = std::map<std::string, std::string>;
std::vector<ReferenceValues> ValuesThatLead(const std::string& name, const std::string& path);

// Returns the existing paths to which a name may lead if the values of its references have no
// slash. `names_in` returns the names in a directory.
using NamesIn = std::function<std::vector<std::string>(const std::string& directory)>;
std::vector<std::string> PathsLike(const std::string& name, const NamesIn& names_in);

// Returns whether the name expands to the path for some values.
bool MayLeadTo(const std::string& name, const std::string& path);

}  // namespace extprop
