#include "output/printable.h"

namespace extprop {

std::string Printable(const std::string& text) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string printable;
    for (size_t i = 0; i < text.size(); ++i) {
        const unsigned char c = text[i];
        // The control characters behind ASCII have two bytes in UTF-8.
        const bool second = c == 0xc2 && i + 1 < text.size() &&
                            static_cast<unsigned char>(text[i + 1]) >= 0x80 &&
                            static_cast<unsigned char>(text[i + 1]) < 0xa0;
        if (c >= ' ' && c != 0x7f && !second) {
            printable += static_cast<char>(c);
            continue;
        }
        printable += {'\\', 'x', kDigits[c / 16], kDigits[c % 16]};
        if (!second) continue;
        const unsigned char next = text[++i];
        printable += {'\\', 'x', kDigits[next / 16], kDigits[next % 16]};
    }
    return printable;
}

std::string Quoted(std::string_view text) {
    return "'" + std::string(text) + "'";
}

std::string QuotedShort(std::string_view text) {
    constexpr size_t kShown = 60;
    if (text.size() <= kShown) return Quoted(text);
    size_t end = kShown;
    while (end > 0 && (text[end] & 0xc0) == 0x80) --end;  // not within a character
    return "'" + std::string(text.substr(0, end)) + "...'";
}

std::string Count(size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

}  // namespace extprop
