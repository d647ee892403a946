// Text for a terminal.

#pragma once

#include <string>

namespace extprop {

// Keeps the text on its line, and the terminal as it is, whatever the device's files hold: control
// characters are shown as "\x1b".
std::string Printable(const std::string& text);

}  // namespace extprop
