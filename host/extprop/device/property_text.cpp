#include "device/property_text.h"

#include <ostream>

#include <android-base/strings.h>

#include "input_error.h"
#include "printable.h"

namespace extprop {

namespace {

using android::base::Trim;

constexpr char kNameFromValue[] = "]: [";

}  // namespace

bool CanBeValue(const std::string& text) {
    return !text.empty() && Trim(text) == text &&
           text.find_first_of(std::string("\n\0", 2)) == std::string::npos;
}

std::optional<std::string> ValueIn(const PropertyMap& properties, const std::string& name) {
    const auto property = properties.find(name);
    if (property == properties.end()) return std::nullopt;
    return property->second;
}

std::pair<std::string, std::string> ParseSetting(const std::string& text,
                                                 const std::string& option) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw InputError(option + " '" + text + "': expected NAME=VALUE");
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

void PrintProperties(const PropertyMap& properties, bool for_terminal, std::ostream& out) {
    for (const auto& [name, value] : properties) {
        const std::string line = "[" + name + kNameFromValue + value + "]";
        out << (for_terminal ? Printable(line) : line) << "\n";
    }
}

}  // namespace extprop
