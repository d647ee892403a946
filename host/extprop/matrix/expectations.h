// Reads the expectations on a device's variants from a YAML file.

#pragma once

#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "matrix/summary.h"

namespace re2 {
class RE2;
}

namespace extprop {

// What is expected of one property.
struct Expected {
    enum Kind {
        kEquals,
        kMatches,  // a regular expression matches the whole value
        kSet,
        kUnset,
        kFrom,  // from a file of the device, or a line of it: "/odm/build.prop:3"
    } kind = kEquals;
    std::string text;                                   // empty for kSet and kUnset
    std::shared_ptr<const re2::RE2> pattern = nullptr;  // for kMatches: the compiled text
    int line = 0;                                       // in the YAML file, from 1
};

// The variants with one of these values on each of the named axes, and no value on the others.
struct VariantSelection {
    std::array<std::vector<std::string>, kAxisCount> values;  // kAnyValue: all values
};
inline constexpr char kAnyValue[] = "*";

struct Expectation {
    std::string name;  // empty if it has none
    int line = 0;
    bool all_variants = true;  // each value of each axis by itself; false: the selections
    std::vector<VariantSelection> selections;
    bool complete = false;  // properties that no expectation on the variant names must be unset
    std::vector<std::pair<std::string, Expected>> properties;  // a name once for each condition
};

struct Expectations {
    std::string file;                // its path, as it was given
    std::vector<std::string> steps;  // none: the default steps
    std::vector<Expectation> expectations;
};

// Reads the file at `path`; if it lies in the directory `device`, which is checked, no link is
// followed to it. Throws InputError: with the path if the file cannot be read, is larger than
// limits::kText or may have more nodes than limits::kYamlNodes; else with path, line and column of
// each error, up to limits::kErrors. After an error of YAML itself no other is reported. Values
// need not be UTF-8; a pattern that is not is an error. Whether the device has the named variants
// and files is not checked here.
Expectations ReadExpectations(const std::string& path, const std::string& device);

// Parses the content of such a file; `path` is its name in errors. Throws in the same way.
Expectations ParseExpectations(const std::string& content, const std::string& path);

// Returns the content of a file that expects exactly the values in the summary, which must be of
// all properties and have no failed variant. The file names these steps; none if there are none, so
// that it is checked with the default steps. ReadExpectations() takes it unless it is too large.
std::string RecordedExpectations(const Summary& summary, const std::vector<std::string>& steps);

// Returns whether the content is that of a recorded file: whether it has the comment with which
// RecordedExpectations() begins.
bool WasRecorded(const std::string& content);

// Returns text such as "'1'" or "a value that matches '[0-9]+'". It is not made printable.
std::string ExpectedText(const Expected& expected);

}  // namespace extprop
