// Tells where properties came from, and what would make lines that did not load do so.

#pragma once

#include <functional>
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
    std::optional<std::string> value;  // at the end
    std::vector<Origin> origins;       // in order of time; what did not load stands at the end
};

struct Explanation {
    std::string device;
    std::vector<ExplainedProperty> properties;  // in the order of their names
    std::vector<std::string> unknown;           // the patterns that nothing matches
};

// Boots and explains the properties whose names match one of the patterns, as in a shell. Makes
// `*report` the boot's. Throws as PreparedDevice does.
Explanation Explain(const BootOptions& options, const std::vector<std::string>& patterns,
                    Report* report);

// The same of a device that is prepared with the options. What loads the lines that did not load is
// tried only for those of which it `is_asked`.
using IsAsked = std::function<bool(const ExplainedProperty& property, const Origin& line)>;
Explanation Explain(PreparedDevice* device, const BootOptions& options,
                    const std::vector<std::string>& patterns, const IsAsked& is_asked,
                    Report* report);

// Returns where the origin gave its value, such as "early /odm/build.prop:3".
std::string OriginText(const Origin& origin);

const char* Name(Fate fate);

}  // namespace extprop
