// Text for XML and HTML.

#pragma once

#include <string>
#include <string_view>

namespace extprop {

// Returns the text, printable and escaped for use between tags and in quotes.
std::string Markup(std::string_view text);

}  // namespace extprop
