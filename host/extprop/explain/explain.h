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

// The pattern of all names. It is no error if there are none.
inline constexpr char kEverything[] = "*";

// Returns whether the name matches one of the patterns, as in a shell.
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

// Boots and explains the properties whose names match one of the patterns, as in a shell; if
// `values` is not empty, only those with one of these. Puts the boot's report into `*report`.
// Throws as PreparedDevice does.
Explanation Explain(const BootOptions& options, const std::vector<std::string>& patterns,
                    Report* report, const std::vector<std::string>& values = {});

// Returns text to add to a message on a word that is no property's name: what it may have been
// meant to be, or "". That is a value in `name_of`, a step, or a similar name.
std::string HintOf(const std::string& word, const std::vector<std::string>& names,
                   const std::map<std::string, std::string>& name_of);

// Does the same as Explain() above with a device that is prepared with the options. Coverage looks
// only for what loads those of the lines that did not load for which `is_asked` returns true.
using IsAsked = std::function<bool(const ExplainedProperty& property, const Origin& line)>;
Explanation Explain(PreparedDevice* device, const BootOptions& options,
                    const std::vector<std::string>& patterns, const IsAsked& is_asked,
                    Report* report);

// Returns the step and place of the origin, such as "early /odm/build.prop:3".
std::string OriginText(const Origin& origin);

// Returns what an operation derived the value from, such as "/odm/etc/a.cfg:2 and ro.x", or "".
std::string DerivedFromText(const Origin& origin);

// Returns what an operation read, such as "ROM=256 (/odm/etc/a.cfg:1)".
std::string InputsText(const std::vector<OperationInput>& inputs);

const char* Name(Fate fate);

}  // namespace extprop
