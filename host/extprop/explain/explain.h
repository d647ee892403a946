// Explains where the values of properties come from, and what would load the lines that did not
// load.

#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "explain/origins.h"

namespace extprop {

// The pattern of all names. It is no error if it matches none.
inline constexpr char kEverything[] = "*";

// Returns whether the name matches one of the patterns, as fnmatch(3) does: "*" also matches dots.
// A pattern is never malformed: "[" alone is an ordinary character.
bool Matches(const std::string& name, const std::vector<std::string>& patterns);

// Returns the patterns that match none of the names, except kEverything.
std::vector<std::string> Unmatched(const std::vector<std::string>& patterns,
                                   const std::vector<std::string>& names);

struct ExplainedProperty {
    std::string name;
    std::optional<std::string> value;    // at the end
    std::vector<Origin> origins;         // in the order of time; lines that did not load are last
    std::vector<std::string> idle = {};  // operations that could have set it, and what they read
};

struct Explanation {
    std::string device;
    std::vector<ExplainedProperty> properties;  // sorted by name
    std::vector<std::string> unknown;           // patterns and values that match nothing
    std::vector<std::string> hints = {};        // for each of these what may have been meant, or ""
};

// Boots and explains the properties whose names match one of the patterns; if `values` is not
// empty, only their origins with one of these values. Puts the boot's report into `*report`; where
// the library fails, explains what it did before. Where lines that did not load cannot be found, or
// what loads them, the report has a note instead. Throws as PreparedDevice does.
Explanation Explain(const BootOptions& options, const std::vector<std::string>& patterns,
                    Report* report, const std::vector<std::string>& values = {});

// Returns text to add to a message on a word that is no property's name: what it may have been
// meant to be, or "". It may be a value, of which `name_of` has the property, or a misspelt step or
// one of `names`, misspelt.
std::string HintOf(const std::string& word, const std::vector<std::string>& names,
                   const std::map<std::string, std::string>& name_of);

// Explains in the same way, with a device that is prepared with the options and was not booted
// since; it must be reset before its next boot. Looks for what loads a line that did not load only
// if `is_asked` returns true for it. Finds neither idle operations nor hints.
using IsAsked = std::function<bool(const ExplainedProperty& property, const Origin& line)>;
Explanation Explain(PreparedDevice* device, const BootOptions& options,
                    const std::vector<std::string>& patterns, const IsAsked& is_asked,
                    Report* report);

// Returns the step and place of the origin, such as "early /odm/build.prop:3".
std::string OriginText(const Origin& origin);

// Returns what an operation derived the value from, such as "/odm/etc/a.cfg:2 and ro.x", or "".
std::string DerivedFromText(const Origin& origin);

// Returns what an operation read, such as "ROM=256 (/odm/etc/a.cfg:1), ro.x unset", or "".
std::string InputsText(const std::vector<OperationInput>& inputs);

// Returns the fate as reports name it, such as "not loaded".
const char* Name(Fate fate);

}  // namespace extprop
