// Text for XML and HTML.

#pragma once

#include <string>
#include <string_view>

namespace extprop {

// Returns the text, made printable and escaped for use between tags and in double quotes. Any bytes
// may go in.
std::string Markup(std::string_view text);

}  // namespace extprop
