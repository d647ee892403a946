#include "device/property_text.h"

#include <errno.h>
#include <string.h>

#include <vector>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "input_error.h"
#include "output/printable.h"

namespace extprop {

namespace {

using android::base::EndsWith;
using android::base::StartsWith;
using android::base::Trim;

constexpr char kSeparator[] = "]: [";

[[noreturn]] void Fail(const std::string& path, size_t line_number, const std::string& what) {
    throw InputError(path + ":" + std::to_string(line_number) + ": " + what);
}

// Parses a line that begins with "[", and the lines that its value goes on in.
void ParseListed(const std::string& path, const std::vector<std::string>& lines, size_t* at,
                 PropertyMap* properties) {
    const size_t first = *at;
    const size_t separator = lines[first].find(kSeparator);
    if (separator == std::string::npos) Fail(path, first + 1, "expected [name]: [value]");
    std::string value = lines[first].substr(separator + strlen(kSeparator));
    while (!EndsWith(value, "]")) {
        if (++*at == lines.size()) Fail(path, first + 1, "the value's closing ] is missing");
        value += "\n" + lines[*at];
    }
    value.pop_back();
    (*properties)[lines[first].substr(1, separator - 1)] = value;
}

}  // namespace

bool CanBeValue(const std::string& text) {
    return !text.empty() && Trim(text) == text &&
           text.find_first_of(std::string("\n\0", 2)) == std::string::npos;
}

std::pair<std::string, std::string> ParseSetting(const std::string& text) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw InputError("--set '" + text + "': expected NAME=VALUE");
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

PropertyMap ReadProperties(const std::string& path) {
    std::string content;
    if (!android::base::ReadFileToString(path, &content, true)) {
        throw InputError(path + ": " + strerror(errno));
    }
    const std::vector<std::string> lines = android::base::Split(content, "\n");
    PropertyMap properties;
    for (size_t at = 0; at < lines.size(); ++at) {
        const std::string line = Trim(lines[at]);
        if (line.empty() || line[0] == '#') continue;
        if (line[0] == '[') {
            ParseListed(path, lines, &at, &properties);
            continue;
        }
        if (StartsWith(line, "import ")) Fail(path, at + 1, "imports are not followed here");
        const size_t equals = line.find('=');
        if (equals == std::string::npos || equals == 0) Fail(path, at + 1, "expected name=value");
        properties[Trim(line.substr(0, equals))] = Trim(line.substr(equals + 1));
    }
    return properties;
}

void PrintProperties(const PropertyMap& properties, bool for_terminal, std::ostream& out) {
    for (const auto& [name, value] : properties) {
        const std::string line = "[" + name + kSeparator + value + "]";
        out << (for_terminal ? Printable(line) : line) << "\n";
    }
}

}  // namespace extprop
