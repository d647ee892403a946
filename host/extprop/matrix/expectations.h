// What is expected of a device's variants, as a YAML file says it.

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
        kMatches,  // a regular expression, the whole value
        kSet,
        kUnset,
        kFrom,  // a file of the device, or a line of it: "/odm/build.prop:3"
    } kind = kEquals;
    std::string text;
    std::shared_ptr<const re2::RE2> pattern = nullptr;  // that the text is, of kMatches
    int line = 0;
};

// The variants that have one of the values of each of the named axes and are as the device is
// otherwise.
struct VariantSelection {
    std::array<std::vector<std::string>, kAxisCount> values;  // kAnyValue: all that there are
};
inline constexpr char kAnyValue[] = "*";

struct Expectation {
    std::string name;
    int line = 0;
    bool all_variants = true;  // each axis by itself; otherwise the selections
    std::vector<VariantSelection> selections;
    bool complete = false;  // what no expectation for the variant names has to be unset
    std::vector<std::pair<std::string, Expected>> properties;
};

struct Expectations {
    std::string file;
    std::vector<std::string> steps;  // none: those that go without saying
    std::vector<Expectation> expectations;
};

// Reads the file. Throws InputError with a line for every error, each with line and column.
// `device` is the directory that is checked.
Expectations ReadExpectations(const std::string& path, const std::string& device);

// The same of a content; `path` names it in errors.
Expectations ParseExpectations(const std::string& content, const std::string& path);

// Returns a file that expects exactly what the summary, of all properties, has.
std::string RecordedExpectations(const Summary& summary, const std::vector<std::string>& steps);

// Whether the content is of such a file.
bool WasRecorded(const std::string& content);

// Such as "'1'" or "a value that matches '[0-9]+'".
std::string ExpectedText(const Expected& expected);

}  // namespace extprop
