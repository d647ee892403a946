// Finds, without a boot, what in a device directory would hurt on the phone.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "sandbox.h"

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
    std::optional<sandbox::ImagePlace> image = {};  // the file is in it, and cannot be opened
};

// Looks at the property files of the device directory, at whatever they import, and at its logos.
// Returns the findings in the order of files and lines, and makes `*notes` what else the user
// should know. Throws InputError if the directory cannot be used.
std::vector<Finding> Lint(const std::string& device, char slot = 'a',
                          std::vector<std::string>* notes = nullptr);

// Returns "file:line: severity: message [identifier]", and behind it which image has the file.
std::string FindingText(const Finding& finding);

// Returns an array of objects with the members of Finding.
nlohmann::json FindingsJson(const std::vector<Finding>& findings);

}  // namespace extprop
