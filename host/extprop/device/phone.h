// Reads PHONE: what a user has from a phone that shows its properties.

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "device/property_text.h"

namespace extprop {

struct Phone {
    PropertyMap properties;
    bool only_persistent = false;    // it shows no others
    std::vector<std::string> notes;  // what the user should know of it
};

// Reads what is at `path`, "-" for standard input. It may be the output of getprop, a property
// file, whose imports are not followed, a bug report as text or zip, the store of the persistent
// properties, or the older directory with a file for each of these; the content decides. A later
// value of a name replaces an earlier one. Throws InputError if it is none of these, with what it
// looks like. Links in the directories `devices`, which are booted, are not followed.
Phone ReadPhone(const std::string& path, const std::vector<std::string>& devices);

// Reads the content of such a file, except a zip. `name` is its name in messages.
Phone PhoneOf(const std::string& name, std::string_view content);

// Returns the offset of the section of the properties in a bug report, or npos if it has none.
size_t FindSystemProperties(std::string_view content);

}  // namespace extprop
