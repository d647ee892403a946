// What-if options: changes of the device that are made in the copy-on-write layer only.

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

// The axes of a variant: the brand, the region, the old nv key in the radio's store, and then each
// of SwitchKeys(), in their order.
enum AxisIndex { kBrandAxis, kRegionAxis, kNvAxis, kFirstKeyAxis, kAxisCount = kFirstKeyAxis + 4 };

struct Axis {
    const char* name;     // its option is "--" and this
    const char* value;    // the name of its value in the help
    const char* what_if;  // its description in the help
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

// Returns the axis of that name. Throws InputError, with the names of all axes, if there is none.
int AxisNamed(const std::string& name);

// Returns the axis's switch key.
const SwitchKey& KeyOf(int axis);

// One value for each axis; an axis without one is as the device is.
using Variant = std::array<std::optional<std::string>, kAxisCount>;

// Returns the reason why no phone can have the value, or nothing if one can.
std::optional<std::string> WhyImpossible(int axis, const std::string& value);

// Returns the message on a value that no file of the device is for.
std::string NoValueText(int axis, const std::string& value);

// A change of one file.
struct Edit {
    std::string path;
    std::string name;                  // of the property; empty for the whole content
    std::optional<std::string> value;  // none: the lines, or the file, are deleted
    bool looked_up = false;            // the look-up of one property must find it, too
};

// Parses "PATH:NAME=VALUE". Throws InputError.
Edit ParseEdit(const std::string& text);

// Parses "PATH" or "PATH:NAME", a file or line to delete. Throws InputError.
Edit ParseDeletion(const std::string& text);

// Returns the command line's option and value for the edit.
std::string EditWords(const Edit& edit);

// What is changed before a boot: first the files that make the device the variant, then those of
// the edits, in their order. An edit gives its value to every line of the name, or adds a line at
// the file's end if there is none; it makes the file if that is missing. Deleting what does not
// exist is no error.
struct WhatIf {
    Variant variant;
    std::vector<Edit> edits;
};

// Makes the edit in this process, which must be inside the sandbox. Returns false if that fails.
bool MakeEdit(const Edit& edit);

// Returns the edit that makes `text` the file's whole content. If the library takes a switch key
// from the file and `text` has no "=", `text` is the key, and the edit makes the line with it.
Edit WholeFile(const std::string& path, const std::string& text);

// Makes the changes. Returns the lines that it changed, by the device's own file and the name; true
// for the variant, false for an edit. Throws InputError with the path that cannot be written.
std::map<std::pair<std::string, std::string>, bool> MakeChanges(const WhatIf& what_if,
                                                                const sandbox::Sandbox& root);

// Makes the changes in this process, which must be inside the sandbox. Returns false if one fails.
bool MakeChangesHere(const WhatIf& what_if);

}  // namespace extprop
