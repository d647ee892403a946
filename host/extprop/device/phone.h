// Reads PHONE: what a user has from a phone that shows its properties.

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "device/property_text.h"

namespace extprop {

struct Phone {
    PropertyMap properties;          // as the phone shows them; init may refuse some
    bool only_persistent = false;    // it was a store, which has no other properties
    std::vector<std::string> notes;  // what the user should know of it
};

// Reads what is at `path`, "-" for standard input. It may be the output of getprop, a property
// file, whose imports are not followed, a bug report as text or zip, the store of the persistent
// properties, the directory of that store, or the older directory with a file for each of these;
// the content decides. A later value of a name replaces an earlier one. `devices` are the devices
// that are booted: links in them are not followed. If the path is standard input or another
// descriptor of this process, the first call reads it, and later ones return the same.
//
// Throws InputError if it cannot be read, is none of these (the message has what it looks like), is
// truncated or damaged, has no properties, or exceeds a limit on phones in budget.h, and
// std::runtime_error if no process can be started for a zip.
Phone ReadPhone(const std::string& path, const std::vector<std::string>& devices);

// Reads the content of such a file, except a zip, which it refuses. `name` is its name in messages.
// Throws as ReadPhone() does.
Phone PhoneOf(const std::string& name, std::string_view content);

// Returns the offset in bytes of the line that begins a bug report's section of the properties, or
// npos if there is none.
size_t FindSystemProperties(std::string_view content);

}  // namespace extprop
