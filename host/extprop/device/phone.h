// What people have from a phone that tells of its properties.

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "device/property_text.h"

namespace extprop {

struct Phone {
    PropertyMap properties;
    bool only_persistent = false;    // it tells of no others
    std::vector<std::string> notes;  // what the user should know of it
};

// Reads what is at `path`, "-" for standard input, recognised by what it is: what getprop prints, a
// property file, whose imports are not followed, a bug report as text or zip, the store of the
// persistent properties, or the older directory with a file for each of these. A later value of a
// name replaces an earlier one. Throws InputError that says what it looks like.
// What lies in the directories `devices`, those that are booted, is reached by no link.
Phone ReadPhone(const std::string& path, const std::vector<std::string>& devices);

// The same of what a file holds, but for a zip; messages call it `name`.
Phone PhoneOf(const std::string& name, std::string_view content);

// Returns where the section of the properties begins in a bug report, npos if nowhere.
size_t FindSystemProperties(std::string_view content);

}  // namespace extprop
