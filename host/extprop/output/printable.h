// Text for a terminal.

#pragma once

#include <string>
#include <string_view>

namespace extprop {

// Keeps the text on its line, and the terminal as it is, whatever the device's files hold: control
// characters are shown as "\x1b".
std::string Printable(const std::string& text);

// Returns the text in quotes, the whole of it or only its beginning if it is long.
std::string Quoted(std::string_view text);
std::string QuotedShort(std::string_view text);

// Returns such as "1 property" or "2 properties".
std::string Count(size_t count, const char* one, const char* many);

}  // namespace extprop
