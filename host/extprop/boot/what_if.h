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
static_assert(kAxes[kAxisCount - 1].name != nullptr, "each axis has a row");

// Returns the axis of that name. Throws InputError, with the names of all axes, if there is none.
int AxisNamed(const std::string& name);

// Returns the switch key of an axis from kFirstKeyAxis on. Throws std::out_of_range for any other.
const SwitchKey& KeyOf(int axis);

// One value for each axis; an axis without one is as the device is.
using Variant = std::array<std::optional<std::string>, kAxisCount>;

// Returns the reason why no phone can have the value on that axis, or nothing if one can.
std::optional<std::string> WhyImpossible(int axis, const std::string& value);

// Returns the message that no file of the device is for this value.
std::string NoValueText(int axis, const std::string& value);

// A change of one file.
struct Edit {
    std::string path;                  // absolute, on the device
    std::string name;                  // of the property; empty for the whole content
    std::optional<std::string> value;  // none: the lines, or the file, are deleted
    bool looked_up = false;            // the look-up of one property must find it, too
};

// Parses "PATH:NAME=VALUE"; PATH ends at the first ":", VALUE may be empty. Throws InputError for
// another form, a PATH that is not absolute, an empty NAME, and a NAME or VALUE with a line end.
// Does not check what init accepts.
Edit ParseEdit(const std::string& text);

// Parses "PATH" or "PATH:NAME", a file or line to delete. Throws InputError if PATH is not absolute
// or NAME is empty.
Edit ParseDeletion(const std::string& text);

// Returns the command line's option and value for an edit that one of these has parsed, not quoted.
std::string EditWords(const Edit& edit);

// What is changed before a boot: first the files that make the device the variant, then those of
// the edits, in their order. An edit gives its value to every line of the name, or adds a line at
// the file's end if there is none; it makes the file and its directory if they are missing.
// Deleting what does not exist is no error.
struct WhatIf {
    Variant variant;
    std::vector<Edit> edits;
};

// Makes the edit in this process, which must be inside the sandbox. Returns false, with errno set,
// if the path is of anything but a regular file, or the file cannot be read or written. Lines are
// changed in the file to which a link at the path leads. The link is removed where the whole file
// is deleted or written, and where a look-up must find the line, since that refuses links.
bool MakeEdit(const Edit& edit);

// Returns the edit that makes `text` the file's whole content. If the library takes a switch key
// from the file and `text` has no "=", `text` is the key, and the edit makes the line with it.
Edit WholeFile(const std::string& path, const std::string& text);

// Makes the changes. Returns the lines that were changed, by the device's own file and the name, ""
// for a whole file: true for a line of the variant, false for one of an edit. Throws InputError
// with the path that cannot be written, or if the library crashes or hangs on a key file, all of
// which are loaded to see which keys they set; otherwise as AskInside() does.
std::map<std::pair<std::string, std::string>, bool> MakeChanges(const WhatIf& what_if,
                                                                const sandbox::Sandbox& root);

// Makes the changes in this process, which must be inside the sandbox, up to the first that fails.
// Returns false if one does. Drops what this process logs from then on.
bool MakeChangesHere(const WhatIf& what_if);

}  // namespace extprop
