#include "output/standard_error.h"

#include <unistd.h>

#include <iostream>

#include "printable.h"

namespace extprop {

void PrintMessage(std::string_view text) {
    constexpr size_t kMost = 4096;  // of a line; more would only hide earlier messages
    std::string line = Printable(text.substr(0, kMost));
    if (text.size() > kMost) line += "...";
    std::cerr << "extprop: " + line + "\n" << std::flush;
}

bool StatusLine::IsSeen() {
    return isatty(STDERR_FILENO) == 1;
}

void StatusLine::Show(std::string_view text) {
    constexpr char kClear[] = "\r\x1b[K";
    if (!is_shown_ && text.empty()) return;
    std::cerr << kClear + Printable(text) << std::flush;
    is_shown_ = !text.empty();
}

}  // namespace extprop
