// Tells where properties came from, and what would make lines that did not load do so.

#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "explain/origins.h"

namespace extprop {

// The pattern of all names, which may be none.
inline constexpr char kEverything[] = "*";

// Whether the name matches one of the patterns, as in a shell.
bool Matches(const std::string& name, const std::vector<std::string>& patterns);

// Returns the patterns that match none of the names, though kEverything may.
std::vector<std::string> Unmatched(const std::vector<std::string>& patterns,
                                   const std::vector<std::string>& names);

struct ExplainedProperty {
    std::string name;
    std::optional<std::string> value;    // at the end
    std::vector<Origin> origins;         // in order of time; what did not load stands at the end
    std::vector<std::string> idle = {};  // operations that would have made it, and what they read
};

struct Explanation {
    std::string device;
    std::vector<ExplainedProperty> properties;  // in the order of their names
    std::vector<std::string> unknown;           // the patterns and values that nothing matches
    std::vector<std::string> hints = {};  // what each of these may have been meant to be, or ""
};

// Boots and explains the properties whose names match one of the patterns, as in a shell; if there
// are values, only what has one of these. Makes `*report` the boot's. Throws as PreparedDevice
// does.
Explanation Explain(const BootOptions& options, const std::vector<std::string>& patterns,
                    Report* report, const std::vector<std::string>& values = {});

// Returns what a word that is no property's name may have been meant to be, to stand behind a
// message, or "": a value of those in `name_of`, a step or a similar name.
std::string HintOf(const std::string& word, const std::vector<std::string>& names,
                   const std::map<std::string, std::string>& name_of);

// The same of a device that is prepared with the options. What loads the lines that did not load is
// tried only for those of which it `is_asked`.
using IsAsked = std::function<bool(const ExplainedProperty& property, const Origin& line)>;
Explanation Explain(PreparedDevice* device, const BootOptions& options,
                    const std::vector<std::string>& patterns, const IsAsked& is_asked,
                    Report* report);

// Returns where the origin gave its value, such as "early /odm/build.prop:3".
std::string OriginText(const Origin& origin);

// Returns from what an operation made the value, such as "/odm/etc/a.cfg:2 and ro.x", or "".
std::string MadeOfText(const Origin& origin);

// Returns what it read, such as "ROM=256 (/odm/etc/a.cfg:1)".
std::string InputsText(const std::vector<OperationInput>& inputs);

const char* Name(Fate fate);

}  // namespace extprop
