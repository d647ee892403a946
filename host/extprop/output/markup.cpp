#include "output/markup.h"

#include "printable.h"

namespace extprop {

std::string Markup(std::string_view text) {
    constexpr struct {
        std::string_view plain;
        const char* markup;
    } kReplaced[] = {{"&", "&amp;"},
                     {"<", "&lt;"},
                     {">", "&gt;"},
                     {"\"", "&quot;"},
                     // XML does not accept these two.
                     {"\xef\xbf\xbe", "\xef\xbf\xbd"},
                     {"\xef\xbf\xbf", "\xef\xbf\xbd"}};
    const std::string printable = Printable(text);
    std::string markup;
    for (size_t at = 0; at < printable.size();) {
        std::string_view taken(&printable[at], 1);
        std::string_view written = taken;
        for (const auto& replaced : kReplaced) {
            if (printable.compare(at, replaced.plain.size(), replaced.plain) != 0) continue;
            taken = replaced.plain;
            written = replaced.markup;
        }
        markup += written;
        at += taken.size();
    }
    return markup;
}

}  // namespace extprop
