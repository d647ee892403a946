// What if the device were another one: changes that are tried out, in the private layer only.

#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <utility>
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
    std::string name;                  // of the property; empty if it is about the whole content
    std::optional<std::string> value;  // none: the lines, or the file, are gone
    bool looked_up = false;            // the look-up of one property has to find it too
};

// Parses "PATH:NAME=VALUE". Throws InputError.
Edit ParseEdit(const std::string& text);

// Parses "PATH" or "PATH:NAME", of what is to be gone. Throws InputError.
Edit ParseDeletion(const std::string& text);

// Returns the option and its value that ask for the edit.
std::string EditWords(const Edit& edit);

// What is changed before a boot: the files that say what the variant is, then those of the edits,
// in their order. Of an edit every line of the name gets the value, or one is added at the file's
// end, and a missing file is made. What is to be gone may be missing already.
struct WhatIf {
    Variant variant;
    std::vector<Edit> edits;
};

// Makes the edit in this process, which is inside the sandbox. Returns false if it cannot be made.
bool MakeEdit(const Edit& edit);

// Returns what makes the file's whole content `text`, or where the library takes a switch key from
// the file and there is no "=" in `text`, the line that says this key.
Edit WholeFile(const std::string& path, const std::string& text);

// Makes the changes. Returns the lines that it made, by the device's own file and the name, and
// whether it was for the variant, rather than an edit. Throws InputError naming the path that
// cannot be written.
std::map<std::pair<std::string, std::string>, bool> MakeChanges(const WhatIf& what_if,
                                                                const sandbox::Sandbox& root);

// The same in this process, which is inside the sandbox. Returns false if one cannot be made.
bool MakeChangesHere(const WhatIf& what_if);

}  // namespace extprop
