#include "device/property_lines.h"

#include <string.h>

namespace extprop {

namespace {

constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
constexpr std::string_view kImport = "import ";

std::string_view TrimLeft(std::string_view text) {
    const size_t start = text.find_first_not_of(kWhiteSpace);
    return start == std::string_view::npos ? std::string_view() : text.substr(start);
}

std::string_view TrimRight(std::string_view text) {
    return text.substr(0, text.find_last_not_of(kWhiteSpace) + 1);
}

PropertyLine Divide(int number, std::string_view text, bool filtered) {
    if (!filtered && text.substr(0, kImport.size()) == kImport) {
        const std::string_view target = TrimLeft(text.substr(kImport.size()));
        const size_t blank = target.find(' ');
        const std::string_view filter =
                blank == std::string_view::npos ? "" : TrimLeft(target.substr(blank));
        return {number, PropertyLine::kImport, text, target.substr(0, blank), filter};
    }
    const size_t equals = text.find('=');
    if (equals == std::string_view::npos) return {number, PropertyLine::kOther, text, "", ""};
    return {number, PropertyLine::kProperty, text, TrimRight(text.substr(0, equals)),
            TrimLeft(text.substr(equals + 1))};
}

}  // namespace

std::vector<PropertyLine> PropertyLines(std::string_view content, bool filtered) {
    std::vector<PropertyLine> lines;
    int number = 0;
    while (!content.empty()) {
        const size_t end = content.find('\n');
        const std::string_view text = TrimRight(TrimLeft(content.substr(0, end)));
        content.remove_prefix(end == std::string_view::npos ? content.size() : end + 1);
        ++number;
        if (!text.empty() && text[0] != '#') lines.push_back(Divide(number, text, filtered));
    }
    return lines;
}

bool PassesFilter(const std::string& name, const std::string& filter) {
    // As in the loader: up to a zero byte, and a "*" at the end matches the rest.
    if (filter.empty()) return true;
    if (filter.back() == '*') return strncmp(name.c_str(), filter.c_str(), filter.size() - 1) == 0;
    return strcmp(name.c_str(), filter.c_str()) == 0;
}

}  // namespace extprop
