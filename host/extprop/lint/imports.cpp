// What imports lead to: nowhere, or round in a circle.

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <set>

#include <android-base/strings.h>

#include "lint/rules.h"
#include "platform.h"
#include "utils.h"

namespace extprop {

namespace {

using platform::PropertyMap;

constexpr Rule kImportCycle = {"import-cycle", Severity::kError};
constexpr Rule kMissingImport = {"missing-import", Severity::kError};
constexpr Rule kMissingVariant = {"missing-variant", Severity::kWarning};
constexpr Rule kMalformedReference = {"malformed-reference", Severity::kError};
constexpr Rule kUnsetReference = {"unset-reference", Severity::kWarning};

// The values that a property has in some file of the device.
using PropertyValues = std::map<std::string_view, std::set<std::string_view>>;

// What the name of an imported file may become on the phone.
struct Expansion {
    std::set<std::string> paths;
    std::string malformed;  // the library's words, if it can become nothing at all
    std::string unset;      // the library's words, if it takes a property that no file sets
};

// What there is on the device at the paths of an expansion.
struct Targets {
    std::vector<std::string> files;
    std::vector<std::string> links;    // quoted
    std::vector<std::string> missing;  // with the reason
};

// An import that is followed to a file.
struct Edge {
    int line;
    std::string to;
};
using ImportGraph = std::map<std::string, std::vector<Edge>>;

PropertyValues ValuesIn(const PropertyFiles& files) {
    PropertyValues values;
    for (const auto& [path, file] : files) {
        if (file.use == FileUse::kMapping || file.use == FileUse::kDeviceName) continue;
        for (const PropertyLine& line : file.lines) {
            if (line.kind == PropertyLine::kProperty && !line.value.empty()) {
                values[line.name].insert(line.value);
            }
        }
    }
    return values;
}

// Returns the name of the unset property that an expansion failed at, or nothing if it failed at
// something else. Only the message tells.
std::string UnsetName(const std::string& message) {
    constexpr char kBefore[] = "property '";
    const size_t end = message.find("' doesn't exist while expanding");
    if (!android::base::StartsWith(message, kBefore) || end == std::string::npos) return "";
    return message.substr(strlen(kBefore), end - strlen(kBefore));
}

// Returns the library's words on a text that no property makes right, or nothing.
std::string SyntaxFault(const std::string& text) {
    platform::ResetProperties({});
    while (true) {
        const auto expanded = ExpandProps(text);
        if (expanded.ok()) return "";
        const std::string name = UnsetName(expanded.error().message());
        if (name.empty()) return expanded.error().message();
        platform::StoreProperty(name, "any");
    }
}

// Expands the text without any property, as early in a boot, and with each value that a property
// in it may have.
Expansion Expand(const std::string& text, const PropertyValues& values) {
    Expansion expansion;
    expansion.malformed = SyntaxFault(text);
    if (!expansion.malformed.empty()) return expansion;

    std::vector<PropertyMap> settings(1);
    for (const auto& [name, known] : values) {
        if (text.find(name) == std::string::npos) continue;
        settings.resize(std::max(settings.size(), known.size() + 1));
    }
    for (const auto& [name, known] : values) {
        if (text.find(name) == std::string::npos) continue;
        auto value = known.begin();
        for (size_t i = 1; i < settings.size(); ++i) {
            settings[i].emplace(name, *value);
            if (std::next(value) != known.end()) ++value;
        }
    }
    for (PropertyMap& setting : settings) {
        platform::ResetProperties(std::move(setting));
        const auto path = ExpandProps(text);
        if (path.ok()) {
            expansion.paths.insert(*path);
        } else {
            expansion.unset = path.error().message();
        }
    }
    return expansion;
}

// Expands what the files import, adds those files to them, and does the same with the properties
// that these bring, until there is nothing new. Returns the expansions.
std::map<std::string, Expansion> FollowImports(const DeviceTree& tree, PropertyFiles* files,
                                               Findings* findings) {
    std::map<std::string, Expansion> expansions;
    size_t known;
    do {
        known = files->size();
        const PropertyValues values = ValuesIn(*files);
        expansions.clear();
        for (const auto& [path, file] : *files) {
            for (const PropertyLine& line : file.lines) {
                if (line.kind != PropertyLine::kImport) continue;
                const std::string text(line.name);
                if (expansions.count(text) == 0) expansions[text] = Expand(text, values);
            }
        }
        for (const auto& [text, expansion] : expansions) {
            for (const std::string& path : expansion.paths) {
                Place place;
                if (!tree.Find(path, false, &place) || !place.is_file()) continue;
                AddPropertyFile(tree, place, FileUse::kProperties, files, findings);
            }
        }
    } while (files->size() != known);
    return expansions;
}

Targets FindTargets(const DeviceTree& tree, const std::set<std::string>& paths) {
    Targets targets;
    for (const std::string& path : paths) {
        Place place;
        if (!tree.Find(path, false, &place)) {
            targets.missing.push_back(Quoted(path) + ": " + strerror(errno));
        } else if (place.is_link()) {
            targets.links.push_back(Quoted(path));
        } else if (!place.is_file()) {
            targets.missing.push_back(Quoted(path) + " is no file");
        } else {
            targets.files.push_back(place.path);
        }
    }
    return targets;
}

// Returns the first of them and how many more there are.
std::string FirstOf(const std::vector<std::string>& texts) {
    if (texts.size() == 1) return texts[0];
    return texts[0] + " (and " + std::to_string(texts.size() - 1) + " more like it)";
}

void CheckImport(const PropertyFile& file, const PropertyLine& line, const Expansion& expansion,
                 const Targets& targets, Findings* findings) {
    const auto add = [&](const Rule& rule, const std::string& message) {
        findings->Add(rule, file.path, line.number, message);
    };
    if (!expansion.malformed.empty()) {
        add(kMalformedReference, expansion.malformed);
    } else if (expansion.paths.empty()) {
        add(kUnsetReference, expansion.unset +
                                     ": no property file of the device sets it, so it must come "
                                     "from elsewhere");
    }
    if (!targets.links.empty()) {
        add(kSymbolicLink,
            FirstOf(targets.links) + " is a symbolic link, which the loader refuses to open");
    }
    if (targets.missing.empty()) return;
    if (targets.files.empty()) {
        add(kMissingImport,
            FirstOf(targets.missing) + ", so all that it should set is unset on the phone");
    } else {
        add(kMissingVariant,
            FirstOf(targets.missing) + ", and one value of the property in the name leads there");
    }
}

// Reports each import that closes a cycle.
void CheckCycles(const ImportGraph& graph, Findings* findings) {
    std::set<std::string> done;
    std::vector<std::string> way;
    const std::function<void(const std::string&)> visit = [&](const std::string& path) {
        const auto edges = graph.find(path);
        if (edges == graph.end() || !done.insert(path).second) return;
        way.push_back(path);
        for (const Edge& edge : edges->second) {
            const auto start = std::find(way.begin(), way.end(), edge.to);
            if (start == way.end()) {
                visit(edge.to);
                continue;
            }
            std::string cycle;
            for (auto step = start; step != way.end(); ++step) cycle += *step + " -> ";
            findings->Add(kImportCycle, path, edge.line,
                          cycle + edge.to +
                                  ": the loader follows imports without end, so the phone does not "
                                  "boot");
        }
        way.pop_back();
    };
    for (const auto& [path, edges] : graph) visit(path);
}

}  // namespace

void CheckImports(const DeviceTree& tree, PropertyFiles* files, Findings* findings) {
    const auto expansions = FollowImports(tree, files, findings);
    std::map<std::string, Targets> targets;
    for (const auto& [text, expansion] : expansions) {
        targets[text] = FindTargets(tree, expansion.paths);
    }
    ImportGraph graph;
    for (const auto& [path, file] : *files) {
        for (const PropertyLine& line : file.lines) {
            if (line.kind != PropertyLine::kImport) continue;
            const std::string text(line.name);
            CheckImport(file, line, expansions.at(text), targets.at(text), findings);
            if (!line.value.empty()) continue;  // a filter: the file's own imports do not count
            for (const std::string& to : targets.at(text).files) {
                graph[path].push_back({line.number, to});
            }
        }
    }
    CheckCycles(graph, findings);
}

}  // namespace extprop
