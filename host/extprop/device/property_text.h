// Properties as text: what the user gives, and what the tool prints.

#pragma once

#include <iosfwd>
#include <string>
#include <utility>

#include "IInitExtensionProperty.h"

namespace extprop {

using android::init::PropertyMap;

// Whether a key file, or the look-up of one property, can give this value.
bool CanBeValue(const std::string& text);

// Splits "NAME=VALUE". Throws InputError if there is no "=" or no name before it.
std::pair<std::string, std::string> ParseSetting(const std::string& text,
                                                 const std::string& option = "--set");

// Prints "[name]: [value]\n" for each property, byte for byte unless it is for a terminal.
void PrintProperties(const PropertyMap& properties, bool for_terminal, std::ostream& out);

}  // namespace extprop
