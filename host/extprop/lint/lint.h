// Finds faults in a device directory that would show on the phone.

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sandbox.h"

namespace extprop {

enum class Severity {
    kWarning,  // does harm on some phones, or may be intended
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
    std::optional<sandbox::ImagePlace> image = {};  // that holds the file, if one does
    std::string path = {};               // of the file on the device; empty for the device itself
    bool is_of_line = false;             // false: of the file as a whole
    std::string text = {};               // of the line, without the white space around it
    std::string fingerprint = {};        // of this finding, even if its line moves
    std::vector<LinePlace> others = {};  // further lines with the same finding
};

// A baseline's entry for a finding.
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
    size_t known = 0;                 // findings that are in the baseline
    std::vector<KnownFinding> fixed;  // its entries that are no longer found
};

// Checks the property files of the device directory, all that they import, and its logos. Returns
// the findings in the order of files and lines, one for each line. Puts what else the user should
// know into `*notes`. Throws InputError if the directory cannot be used.
std::vector<Finding> Lint(const std::string& device, const sandbox::Options& options = {},
                          std::vector<std::string>* notes = nullptr);

// Returns the findings with those that have the same reason combined into the first of them.
std::vector<Finding> Grouped(const std::vector<Finding>& findings);

// Returns a hash in hexadecimal digits, which is the same for the same texts on every machine.
std::string Fingerprint(const std::vector<std::string_view>& texts);

// Returns "error" or "warning".
const char* SeverityName(Severity severity);

// Returns the message with the further lines, and the image that has the file.
std::string MessageText(const Finding& finding);

// Returns "file:line: severity: message [identifier]", on one line.
std::string FindingText(const Finding& finding);

}  // namespace extprop
