// What if the device were another one: changes that are tried out, in the private layer only.

#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "device/places.h"
#include "sandbox.h"

namespace extprop {

// What a phone can be otherwise: of another brand, of another region, with another key in the radio
// store of older software, and with another value of each of SwitchKeys(), in their order.
enum AxisIndex { kBrandAxis, kRegionAxis, kNvAxis, kFirstKeyAxis, kAxisCount = kFirstKeyAxis + 4 };

struct Axis {
    const char* name;     // its option is this behind "--"
    const char* value;    // what the help calls a value
    const char* what_if;  // as the help has it
};

inline constexpr Axis kAxes[kAxisCount] = {
        {"brand", "NAME", "What if the device were of this brand"},
        {"region", "CODE", "What if it were of this region"},
        {"nv", "KEY", "What if older software had left this key in its radio store"},
        {"sim-first", "KEY", "What if its first SIM had selected this key"},
        {"sim-current", "KEY", "What if its current SIM had selected this key"},
        {"channel", "KEY", "What if this were the key of its sales channel"},
        {"region-key", "KEY", "What if this were the key of its region"},
};

// Returns the axis of that name. Throws InputError that says which there are.
int AxisNamed(const std::string& name);

// Returns the axis's switch key.
const SwitchKey& KeyOf(int axis);

// One value for each axis; an axis without one is as the device is.
using Variant = std::array<std::optional<std::string>, kAxisCount>;

// Returns why no phone has the value, or nothing.
std::optional<std::string> WhyNot(int axis, const std::string& value);

// One file's change.
struct Edit {
    std::string path;
    std::string name;  // of the property; empty if `value` is to be the whole content
    std::string value;
    bool looked_up = false;  // the look-up of one property has to find it too
};

// Parses "PATH:NAME=VALUE". Throws InputError.
Edit ParseEdit(const std::string& text);

// What is changed before a boot: the files that say what the variant is, then those of the edits,
// in their order. Of an edit every line of the name gets the value, or one is added at the file's
// end, and a missing file is made.
struct WhatIf {
    Variant variant;
    std::vector<Edit> edits;
};

// Makes the changes. Throws InputError naming the path that cannot be written.
void MakeChanges(const WhatIf& what_if, const sandbox::Sandbox& root);

// The same in this process, which is inside the sandbox. Returns false if one cannot be made.
bool MakeChangesHere(const WhatIf& what_if);

}  // namespace extprop
