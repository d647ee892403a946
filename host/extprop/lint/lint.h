// Finds, without a boot, what in a device directory would hurt on the phone.

#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace extprop {

enum class Severity {
    kWarning,  // hurts on some phones, or may be meant
    kError,    // something is certainly lost or broken
};

struct Finding {
    std::string file;  // as it can be opened from the current directory
    int line;          // from 1, which also stands for the file as a whole
    Severity severity;
    std::string identifier;  // docs/lint.md lists them
    std::string message;
};

// Looks at the property files of the device directory, at whatever they import, and at its logos.
// Returns the findings in the order of files and lines. Throws InputError if the directory cannot
// be used.
std::vector<Finding> Lint(const std::string& device);

// Returns "file:line: severity: message [identifier]".
std::string FindingText(const Finding& finding);

// Returns an array of objects with the members of Finding.
nlohmann::json FindingsJson(const std::vector<Finding>& findings);

}  // namespace extprop
