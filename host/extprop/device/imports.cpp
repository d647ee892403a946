#include "device/imports.h"

#include <fnmatch.h>
#include <string.h>

#include <algorithm>

#include <android-base/strings.h>

#include "device/property_lines.h"
#include "platform.h"
#include "utils.h"

namespace extprop {

namespace {

using android::base::StartsWith;

// A piece of a name: a text, or a reference to a property.
struct Part {
    std::string text;
    bool is_reference = false;
};

// Divides the name into parts. Returns nothing if the library cannot expand it.
std::optional<std::vector<Part>> Divide(std::string_view name) {
    std::vector<Part> parts(1);
    for (size_t i = 0; i < name.size(); ++i) {
        if (name[i] != '$' || i + 1 == name.size()) {
            if (name[i] != '$') parts.back().text += name[i];
            continue;
        }
        const char next = name[++i];
        if (next == '$') {
            parts.back().text += '$';
            continue;
        }
        const size_t close = name.find('}', i);
        if (next != '{' || close == std::string_view::npos) return std::nullopt;
        const std::string_view inner = name.substr(i + 1, close - i - 1);
        parts.push_back({std::string(inner.substr(0, inner.find(":-"))), true});
        if (parts.back().text.empty()) return std::nullopt;
        parts.emplace_back();
        i = close;
    }
    return parts;
}

// Adds to `*found` the values with which the parts from `first` on expand to the path from `at` on.
void Lead(const std::vector<Part>& parts, size_t first, const std::string& path, size_t at,
          ReferenceValues* values, std::vector<ReferenceValues>* found) {
    if (first == parts.size()) {
        if (at == path.size()) found->push_back(*values);
        return;
    }
    const Part& part = parts[first];
    if (!part.is_reference) {
        if (path.compare(at, part.text.size(), part.text) != 0) return;
        Lead(parts, first + 1, path, at + part.text.size(), values, found);
        return;
    }
    if (const auto known = values->find(part.text); known != values->end()) {
        // The same name has the same value everywhere.
        const std::string value = known->second;
        if (path.compare(at, value.size(), value) != 0) return;
        Lead(parts, first + 1, path, at + value.size(), values, found);
        return;
    }
    for (size_t end = path.size(); end > at; --end) {
        (*values)[part.text] = path.substr(at, end - at);
        Lead(parts, first + 1, path, end, values, found);
    }
    values->erase(part.text);
}

// Returns the shell pattern of the paths to which a name may expand, or "" for a malformed name.
std::string PatternOf(const std::string& name) {
    std::string pattern;
    const auto parts = Divide(name);
    if (!parts) return pattern;
    for (const Part& part : *parts) {
        for (const char c : part.is_reference ? "" : part.text) {
            if (strchr("*?[\\", c) != nullptr) pattern += '\\';
            pattern += c;
        }
        if (part.is_reference) pattern += '*';
    }
    return pattern;
}

// Returns the file name that the pattern matches, if it matches only one.
std::optional<std::string> OnlyName(const std::string& pattern) {
    std::string name;
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '*') return std::nullopt;
        if (pattern[i] == '\\') ++i;
        name += pattern[i];
    }
    return name;
}

// Returns the name of the unset property because of which an expansion failed, or nothing if it
// failed for another reason. Only the library's message has it.
std::string UnsetName(const std::string& message) {
    constexpr char kBefore[] = "property '";
    const size_t end = message.find("' doesn't exist while expanding");
    if (!StartsWith(message, kBefore) || end == std::string::npos) return "";
    return message.substr(strlen(kBefore), end - strlen(kBefore));
}

}  // namespace

std::vector<ImportLine> ImportsIn(std::string_view content) {
    std::vector<ImportLine> imports;
    for (const PropertyLine& line : PropertyLines(content)) {
        if (line.kind != PropertyLine::kImport) continue;
        imports.push_back({line.number, std::string(line.name), std::string(line.value)});
    }
    return imports;
}

std::vector<std::string> References(std::string_view text) {
    std::vector<std::string> names;
    for (const Part& part : Divide(text).value_or(std::vector<Part>())) {
        const bool is_known = std::count(names.begin(), names.end(), part.text) != 0;
        if (part.is_reference && !is_known) names.push_back(part.text);
    }
    return names;
}

Expansion Expand(const std::string& name) {
    const auto expanded = ExpandProps(name);
    if (expanded.ok()) return {*expanded, "", ""};
    const std::string fault = expanded.error().message();
    return {"", fault, UnsetName(fault)};
}

std::string SyntaxFault(const std::string& name) {
    platform::ResetProperties({});
    while (true) {
        const Expansion expansion = Expand(name);
        if (expansion.fault.empty()) return "";
        if (expansion.unset.empty()) return expansion.fault;
        platform::StoreProperty(expansion.unset, "any");
    }
}

std::vector<ReferenceValues> ValuesThatLead(const std::string& name, const std::string& path) {
    std::vector<ReferenceValues> found;
    ReferenceValues values;
    const size_t plain = std::min(name.find('$'), name.size());
    if (path.compare(0, plain, name, 0, plain) != 0) return found;
    if (const auto parts = Divide(name)) Lead(*parts, 0, path, 0, &values, &found);
    return found;
}

std::vector<std::string> PathsLike(const std::string& name, const NamesIn& names_in) {
    std::vector<std::string> paths = {""};
    for (const std::string& component : android::base::Split(PatternOf(name), "/")) {
        if (component.empty()) continue;
        const auto only = OnlyName(component);
        std::vector<std::string> longer;
        for (const std::string& path : paths) {
            if (only) {
                longer.push_back(path + "/" + *only);
                continue;
            }
            for (const std::string& entry : names_in(path + "/")) {
                if (fnmatch(component.c_str(), entry.c_str(), 0) == 0) {
                    longer.push_back(path + "/" + entry);
                }
            }
        }
        paths = std::move(longer);
    }
    return paths;
}

bool MayLeadTo(const std::string& name, const std::string& path) {
    return fnmatch(PatternOf(name).c_str(), path.c_str(), 0) == 0;
}

}  // namespace extprop
