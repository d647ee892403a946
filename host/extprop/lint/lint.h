// Finds what in a device directory would hurt on the phone.

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sandbox.h"

namespace extprop {

enum class Severity {
    kWarning,  // hurts on some phones, or may be meant
    kError,    // something is certainly lost or broken
};

// A line of a file.
struct LinePlace {
    std::string file;  // as it can be opened from the current directory
    int line;          // from 1
    std::string path;  // of the file on the device
};

struct Finding {
    std::string file;  // as it can be opened from the current directory
    int line;          // from 1, which also stands for the file as a whole
    Severity severity;
    std::string identifier;  // docs/lint.md lists them
    std::string message;
    std::optional<sandbox::ImagePlace> image = {};  // the file is in it, and cannot be opened
    std::string path = {};               // of the file on the device; empty for the device itself
    bool is_of_line = false;             // rather than of the file as a whole
    std::string text = {};               // of the line, without the white space around it
    std::string fingerprint = {};        // of this finding, wherever its line moves to
    std::vector<LinePlace> others = {};  // further lines that it is found in for the same reason
};

// What stands in a baseline for a finding.
struct KnownFinding {
    std::string fingerprint;
    std::string identifier;
    std::string path;  // as of the finding
    std::string text;
    int line = 0;  // of the baseline, from 1
};

struct LintReport {
    std::vector<Finding> findings;
    std::vector<std::string> notes;
    size_t known = 0;                 // findings that stand in the baseline
    std::vector<KnownFinding> fixed;  // what stands there and is found no more
};

// Looks at the property files of the device directory, at whatever they import, and at its logos.
// Returns the findings in the order of files and lines, each line's by itself, and makes `*notes`
// what else the user should know. Throws InputError if the directory cannot be used.
std::vector<Finding> Lint(const std::string& device, const sandbox::Options& options = {},
                          std::vector<std::string>* notes = nullptr);

// Makes those findings one that repeat for the same reason; the first of them stands for all.
std::vector<Finding> Grouped(const std::vector<Finding>& findings);

// Returns digits that are the same for the same texts on every machine.
std::string Fingerprint(const std::vector<std::string_view>& texts);

// Returns "error" or "warning".
const char* SeverityName(Severity severity);

// Returns the message with the further lines, and the image that has the file.
std::string MessageText(const Finding& finding);

// Returns "file:line: severity: message [identifier]", on one line.
std::string FindingText(const Finding& finding);

}  // namespace extprop
