// Reads the expectations on a device's variants from a YAML file.

#pragma once

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
    std::string text;
    std::shared_ptr<const re2::RE2> pattern = nullptr;  // for kMatches: the compiled text
    int line = 0;
};

// The variants with one of these values on each of the named axes, and no value on the others.
struct VariantSelection {
    std::array<std::vector<std::string>, kAxisCount> values;  // kAnyValue: all values
};
inline constexpr char kAnyValue[] = "*";

struct Expectation {
    std::string name;
    int line = 0;
    bool all_variants = true;  // each value of each axis by itself; false: the selections
    std::vector<VariantSelection> selections;
    bool complete = false;  // properties that no expectation on the variant names must be unset
    std::vector<std::pair<std::string, Expected>> properties;
};

struct Expectations {
    std::string file;
    std::vector<std::string> steps;  // none: the default steps
    std::vector<Expectation> expectations;
};

// Reads the file. `device` is the directory that is checked. Throws InputError that has, for every
// error, a text with line and column.
Expectations ReadExpectations(const std::string& path, const std::string& device);

// Parses the content of such a file; `path` is its name in errors.
Expectations ParseExpectations(const std::string& content, const std::string& path);

// Returns the content of a file that expects exactly the values in the summary, which must be of
// all properties.
std::string RecordedExpectations(const Summary& summary, const std::vector<std::string>& steps);

// Returns whether the content is that of a recorded file.
bool WasRecorded(const std::string& content);

// Returns text such as "'1'" or "a value that matches '[0-9]+'".
std::string ExpectedText(const Expected& expected);

}  // namespace extprop
