// Properties as text, as the user gives them and as the tool prints them.

#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <utility>

#include "IInitExtensionProperty.h"

namespace extprop {

using android::init::PropertyMap;

// Returns whether a key file, or the look-up of one property, can have this value: it is not empty,
// has one line, no zero byte, and no white space around it.
bool CanBeValue(const std::string& text);

// Returns the property's value, or nothing if it is unset.
std::optional<std::string> ValueIn(const PropertyMap& properties, const std::string& name);

// Splits "NAME=VALUE" at the first "="; the value may be empty. Throws InputError, which begins
// with `option`, if there is no "=" or no name before it. Does not check what init accepts.
std::pair<std::string, std::string> ParseSetting(const std::string& text,
                                                 const std::string& option = "--set");

// Prints "[name]: [value]\n" for each property, byte by byte; printable if it is for a terminal.
void PrintProperties(const PropertyMap& properties, bool for_terminal, std::ostream& out);

}  // namespace extprop
