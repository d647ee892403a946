#include "device/imports.h"

#include <fnmatch.h>
#include <string.h>

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

#include <android-base/strings.h>

#include "device/property_lines.h"
#include "platform.h"
#include "utils.h"

namespace extprop {

namespace {

using android::base::EndsWith;
using android::base::StartsWith;

// A piece of a name: a text, or a reference to a property.
struct Part {
    std::string text;
    bool is_reference = false;
};

// Divides the name into `*parts`. Returns false, with the parts up to there, if the library cannot
// expand it.
bool Divide(std::string_view name, std::vector<Part>* parts) {
    parts->assign(1, {});
    for (size_t i = 0; i < name.size(); ++i) {
        if (name[i] != '$' || i + 1 == name.size()) {
            if (name[i] != '$') parts->back().text += name[i];
            continue;
        }
        const char next = name[++i];
        if (next == '$') {
            parts->back().text += '$';
            continue;
        }
        const size_t close = name.find('}', i);
        if (next != '{' || close == std::string_view::npos) return false;
        const std::string_view inner = name.substr(i + 1, close - i - 1);
        const std::string_view property = inner.substr(0, inner.find(":-"));
        if (property.empty()) return false;
        parts->push_back({std::string(property), true});
        parts->emplace_back();
        i = close;
    }
    return true;
}

// Returns the name in the form of a path: with a slash at its start and none doubled, as far as its
// own text tells.
std::string Simplified(const std::string& name) {
    std::string simple = name.empty() || name[0] == '/' || name[0] == '$' ? "" : "/";
    for (size_t i = 0; i < name.size(); ++i) {
        if (name.compare(i, 2, "${") == 0) {
            const size_t close = std::min(name.find('}', i), name.size() - 1);
            simple.append(name, i, close + 1 - i);
            i = close;
        } else if (name[i] != '/' || simple.empty() || simple.back() != '/') {
            simple += name[i];
        }
    }
    return simple;
}

// Finds the values with which the parts of a name expand to a path.
class LeadSearch {
  public:
    LeadSearch(const std::vector<Part>& parts, const std::string& path, size_t most, size_t steps)
            : parts_(parts), path_(path), most_(most), steps_(steps) {
        Lead(0, 0);
    }

    LeadingValues TakeFound() { return std::move(found_); }
    size_t steps_left() const { return steps_; }

  private:
    // Adds the values with which the parts from `first` on expand to the path from `at` on.
    void Lead(size_t first, size_t at) {
        if (steps_ == 0) found_.is_complete = false;
        if (!found_.is_complete) return;
        --steps_;
        if (first == parts_.size()) {
            if (at == path_.size()) AddFound();
            return;
        }
        const Part& part = parts_[first];
        const auto known = values_.find(part.text);
        if (part.is_reference && known == values_.end()) {
            for (size_t end = path_.size(); end > at && found_.is_complete; --end) {
                values_[part.text] = path_.substr(at, end - at);
                Lead(first + 1, end);
            }
            values_.erase(part.text);
            return;
        }
        // The same name has the same value everywhere.
        const size_t size = part.is_reference ? known->second.size() : part.text.size();
        if (path_.compare(at, size, part.is_reference ? known->second : part.text) != 0) return;
        Lead(first + 1, at + size);
    }

    void AddFound() {
        if (found_.choices.size() == most_) {
            found_.is_complete = false;
        } else {
            found_.choices.push_back(values_);
        }
    }

    const std::vector<Part>& parts_;
    const std::string& path_;
    const size_t most_;
    size_t steps_;
    ReferenceValues values_;
    LeadingValues found_;
};

// Returns the shell pattern of the paths to which a name may expand, or "" for a malformed name.
std::string PatternOf(const std::string& name) {
    std::string pattern;
    std::vector<Part> parts;
    if (!Divide(name, &parts)) return pattern;
    for (const Part& part : parts) {
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
    std::vector<Part> parts;
    if (!Divide(text, &parts)) return names;
    std::set<std::string> known;
    for (const Part& part : parts) {
        if (part.is_reference && known.insert(part.text).second) names.push_back(part.text);
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
    std::vector<Part> parts;
    Divide(name, &parts);
    platform::ResetProperties({});
    for (const Part& part : parts) {
        if (part.is_reference) platform::StoreProperty(part.text, "any");
    }
    while (true) {
        const Expansion expansion = Expand(name);
        if (expansion.fault.empty()) return "";
        if (expansion.unset.empty()) return expansion.fault;
        platform::StoreProperty(expansion.unset, "any");
    }
}

LeadingValues ValuesThatLead(const std::string& given, const std::string& path, size_t most,
                             size_t* steps) {
    constexpr size_t kMostSteps = 10'000;
    const std::string name = Simplified(given);
    // Most names are decided by what they begin and end with.
    const size_t plain = std::min(name.find('$'), name.size());
    if (path.compare(0, plain, name, 0, plain) != 0) return {};
    std::vector<Part> parts;
    if (!Divide(name, &parts) || !EndsWith(path, parts.back().text)) return {};
    const size_t own_steps = std::min(kMostSteps, *steps);
    LeadSearch search(parts, path, most, own_steps);
    *steps -= own_steps - search.steps_left();
    return search.TakeFound();
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

}  // namespace extprop
