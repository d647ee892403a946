// Changes of a device that are tried out: they are made in the private layer only.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "device/places.h"
#include "sandbox.h"

namespace extprop {

// One file's change.
struct Edit {
    std::string path;
    std::string name;  // of the property; empty if `value` is to be the whole content
    std::string value;
    bool looked_up = false;  // the look-up of one property has to find it too
};

// Parses "PATH:NAME=VALUE". Throws InputError.
Edit ParseEdit(const std::string& text);

Edit BrandEdit(const std::string& name);
Edit RegionEdit(const std::string& code);
Edit NvKeyEdit(const std::string& key);

// What sets a property behind all else: a partition that the device does not have, made with these
// words to hold the property, and the step that loads it.
Words TriedWords(const std::string& property, const std::string& value);
inline constexpr char kTriedStep[] = "early:/data/what-if";

// Makes the changes, in their order: every line of the name gets the value, or one is added at the
// file's end, and a missing file is made. Throws InputError naming the path that cannot be written.
void MakeEdits(const std::vector<Edit>& edits, const sandbox::Sandbox& root);

// The same in this process, which is inside the sandbox. Returns which one cannot be made, if one
// cannot.
std::optional<size_t> MakeEditsHere(const std::vector<Edit>& edits);

}  // namespace extprop
