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
    std::optional<sandbox::ImagePlace> image = {};  // the one that holds the file, if one does
    std::string path = {};               // of the file on the device; empty for the device itself
    bool is_of_line = false;             // false: of the file as a whole
    std::string text = {};               // of the line, without the white space around it
    std::string fingerprint = {};        // stays the same if only the line moves
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
    std::vector<KnownFinding> fixed;  // entries of the baseline that are no longer found
};

// Boots the phones that the device can become, and checks its property files, all that they import,
// and its logos. Returns the findings, not yet grouped, in the order of files and lines; files that
// cannot be read are findings, too, and that no boot succeeds. Puts what else the user should know
// into `*notes`. That the directory is no device's root is a finding that ends the checks. Throws
// InputError if the directory or a comment that should allow findings cannot be used,
// std::runtime_error for a damaged image or too many files.
std::vector<Finding> Lint(const std::string& device, const sandbox::Options& options = {},
                          std::vector<std::string>* notes = nullptr);

// Combines findings with the same rule and message into the first of them: those of one file, and
// for some rules those of all files. Returns the findings that are left.
std::vector<Finding> Grouped(const std::vector<Finding>& findings);

// Returns a hash in 16 hexadecimal digits, which is the same for the same texts on every machine.
std::string Fingerprint(const std::vector<std::string_view>& texts);

// Returns "error" or "warning".
const char* SeverityName(Severity severity);

// Returns the message with up to 20 of the further lines, and the image that has the file.
std::string MessageText(const Finding& finding);

// Returns "file:line: severity: message [identifier]" on one line; the message is MessageText().
std::string FindingText(const Finding& finding);

}  // namespace extprop
