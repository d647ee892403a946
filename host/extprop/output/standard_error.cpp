#include "output/standard_error.h"

#include <unistd.h>

#include <iostream>

#include "printable.h"

namespace extprop {

namespace {

constexpr char kClear[] = "\r\x1b[K";
bool g_status_is_shown = false;

}  // namespace

void PrintMessage(std::string_view text) {
    constexpr size_t kMost = 4096;  // of a line; more would only hide earlier messages
    std::string line = Printable(text.substr(0, kMost));
    if (text.size() > kMost) line += "...";
    std::cerr << (g_status_is_shown ? kClear : "") + ("extprop: " + line) + "\n" << std::flush;
    g_status_is_shown = false;
}

bool StatusLine::IsSeen() {
    return isatty(STDERR_FILENO) == 1;
}

void StatusLine::Show(std::string_view text) {
    if (!g_status_is_shown && text.empty()) return;
    std::cerr << kClear + Printable(text) << std::flush;
    g_status_is_shown = !text.empty();
}

}  // namespace extprop
