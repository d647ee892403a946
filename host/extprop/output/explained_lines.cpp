#include "output/explained_lines.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

#include <android-base/strings.h>

#include "device/places.h"
#include "printable.h"

namespace extprop {

namespace {

constexpr size_t kMostLines = 10;
constexpr size_t kLayers = 5;  // from which on the order is printed
constexpr size_t kLeastAlike = 3;
constexpr size_t kMostNames = 6;

using OriginList = std::vector<const Origin*>;
using Components = std::vector<std::string>;

// What the places of lines have in common if their paths differ in one name.
struct Alike {
    size_t position = 0;  // the index of that name
    Components components;
    int line = 0;

    bool operator<(const Alike& other) const {
        return std::tie(position, line, components) <
               std::tie(other.position, other.line, other.components);
    }
};

std::vector<Alike> AlikesOf(const Origin& origin) {
    std::vector<Alike> alikes;
    const Components components = android::base::Split(origin.file, "/");
    for (size_t i = 1; i < components.size(); ++i) {
        alikes.push_back({i, components, origin.line});
        alikes.back().components[i].clear();
    }
    return alikes;
}

// Removes the largest group of similar lines from the list and returns it.
OriginList TakeGroup(OriginList* list, Alike* alike) {
    std::map<Alike, OriginList> groups;
    for (const Origin* origin : *list) {
        for (const Alike& each : AlikesOf(*origin)) groups[each].push_back(origin);
    }
    const auto largest = std::max_element(
            groups.begin(), groups.end(),
            [](const auto& a, const auto& b) { return a.second.size() < b.second.size(); });
    if (largest == groups.end() || largest->second.size() < kLeastAlike) return {};
    *alike = largest->first;
    const OriginList& group = largest->second;
    list->erase(std::remove_if(list->begin(), list->end(),
                               [&](const Origin* origin) {
                                   return std::count(group.begin(), group.end(), origin) != 0;
                               }),
                list->end());
    return group;
}

std::string GroupText(const OriginList& group, const Alike& alike, const std::string& property) {
    Components path = alike.components;
    const bool is_key = path[alike.position - 1] == kKeysDirectory;
    const std::string name = is_key ? "KEY" : "NAME";
    path[alike.position] = name;
    std::vector<std::string> names;
    for (const Origin* origin : group) {
        names.push_back(android::base::Split(origin->file, "/")[alike.position]);
    }
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    std::string listed;
    for (size_t i = 0; i < names.size(); ++i) {
        if (names.size() > kMostNames && i >= kMostNames / 2 && i + 1 < names.size()) continue;
        const bool is_gap = names.size() > kMostNames && i + 1 == names.size();
        listed += (i == 0 ? "" : is_gap ? " ... " : ", ") + names[i];
    }
    return std::to_string(group.size()) + " more, not loaded: " + android::base::Join(path, '/') +
           ":" + std::to_string(alike.line) + ", for " + name + " = " + listed +
           "; see extprop matrix DEVICE " + property;
}

}  // namespace

std::vector<ExplainedLine> LinesOf(const ExplainedProperty& property, bool verbose) {
    OriginList loaded, unloaded;
    for (const Origin& origin : property.origins) {
        (origin.did_not_load() ? unloaded : loaded).push_back(&origin);
    }
    std::vector<ExplainedLine> lines;
    for (const std::string& idle : property.idle) lines.push_back({nullptr, idle});
    if (loaded.size() >= kLayers) lines.push_back({nullptr, "earlier to later:"});
    if (verbose || property.origins.size() <= kMostLines) {
        for (const Origin& origin : property.origins) lines.push_back({&origin, ""});
        return lines;
    }
    std::vector<ExplainedLine> rest;
    Alike alike;
    for (OriginList group; !(group = TakeGroup(&unloaded, &alike)).empty();) {
        rest.push_back({nullptr, GroupText(group, alike, property.name)});
    }
    for (const Origin* origin : unloaded) rest.insert(rest.begin(), {origin, ""});
    // Later layers matter more, and the winner most.
    const size_t few = std::min(loaded.size(), kMostLines - std::min(rest.size(), kMostLines / 2));
    size_t left_out = 0;
    for (size_t i = 0; i < loaded.size(); ++i) {
        if (i + few >= loaded.size() || loaded[i]->fate == Fate::kWins) {
            lines.push_back({loaded[i], ""});
        } else {
            ++left_out;
        }
    }
    for (ExplainedLine& line : rest) {
        if (lines.size() < kMostLines) {
            lines.push_back(std::move(line));
        } else {
            ++left_out;
        }
    }
    if (left_out > 0) {
        lines.push_back(
                {nullptr, "and " + Count(left_out, "line", "lines") + " that --verbose lists"});
    }
    return lines;
}

}  // namespace extprop
