// Text in XML and HTML.

#pragma once

#include <string>
#include <string_view>

namespace extprop {

// Returns the text, made printable, as it stands between tags and in quotes.
std::string Markup(std::string_view text);

}  // namespace extprop
