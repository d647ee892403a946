// What imports lead to: nowhere, round in a circle, or to one file again and again.

#include <errno.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <set>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "TesvoExtensionProperty/cota.h"
#include "TesvoExtensionProperty/names.h"
#include "lint/rules.h"
#include "nearest.h"
#include "output/printable.h"
#include "platform.h"
#include "utils.h"

namespace extprop {

namespace {

using platform::PropertyMap;

constexpr const Rule& kImportCycle = RuleNamed("import-cycle");
constexpr const Rule& kMissingImport = RuleNamed("missing-import");
constexpr const Rule& kMissingVariant = RuleNamed("missing-variant");
constexpr const Rule& kMalformedReference = RuleNamed("malformed-reference");
constexpr const Rule& kUnsetReference = RuleNamed("unset-reference");
constexpr const Rule& kLateReference = RuleNamed("late-reference");
constexpr const Rule& kIdleFilter = RuleNamed("idle-filter");
constexpr const Rule& kImportMultiplies = RuleNamed("import-multiplies");

// One file loaded as often as this is no longer meant.
constexpr uint64_t kManyLoads = 100;

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

// An import line and the files that it leads to, one of them in a boot.
struct Import {
    const PropertyLine* line;
    const std::vector<std::string>* files;
    bool is_followed() const { return line->value.empty(); }  // a filter: its own imports are not
};
using ImportGraph = std::map<std::string, std::vector<Import>>;

// A line that gives a property a value, and when init is given it.
struct Setter {
    const PropertyFile* file;
    const PropertyLine* line;
    unsigned moments;
};
using Setters = std::map<std::string, std::vector<Setter>>;  // by name

bool SetsProperties(const PropertyFile& file) {
    return file.use != FileUse::kMapping && file.use != FileUse::kDeviceName;
}

PropertyValues ValuesIn(const PropertyFiles& files) {
    PropertyValues values;
    for (const auto& [path, file] : files) {
        if (!SetsProperties(file)) continue;
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

// Finds the file that the path leads to while a carrier package or module is mounted.
bool FindMounted(const DeviceTree& tree, const std::string& path, const PropertyFiles& files,
                 Place* place) {
    for (const auto& [message, file] : files) {
        if (file.use != FileUse::kCotaMessage) continue;
        std::string source, target = android::init::kCarrierRoot;
        for (const PropertyLine& line : file.lines) {
            if (line.name == android::init::kCotaRoot || line.name == "mount_point") {
                source = line.value;
            } else if (line.name == android::init::kBindPoint) {
                target = line.value;
            }
        }
        Place point, above_place;
        if (source.empty() || !tree.Find(target, true, &point)) continue;
        for (std::string above = android::base::Dirname(path); above.size() > 1;
             above = android::base::Dirname(above)) {
            if (!tree.Find(above, true, &above_place) || above_place.path != point.path) continue;
            if (tree.Find(source + path.substr(above.size()), false, place)) return true;
        }
    }
    return false;
}

Targets FindTargets(const DeviceTree& tree, const std::set<std::string>& paths,
                    const PropertyFiles& files) {
    Targets targets;
    for (const std::string& path : paths) {
        Place place;
        const bool is_there = tree.Find(path, false, &place);
        const std::string reason = is_there ? "" : strerror(errno);
        if (!is_there && !FindMounted(tree, path, files, &place)) {
            targets.missing.push_back(QuotedShort(path) + ": " + reason);
        } else if (place.is_link()) {
            targets.links.push_back(QuotedShort(path));
        } else if (!place.is_file()) {
            targets.missing.push_back(QuotedShort(path) + " is no file");
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

// Whether the text refers to the switch key that is in force whenever the file is read.
bool RefersToOwnKey(const std::string& path, const std::string& text) {
    if (!IsOfSwitchKey(path)) return false;
    const std::string leaf = android::base::Basename(android::base::Dirname(path));
    return std::any_of(SwitchKeys().begin(), SwitchKeys().end(), [&](const SwitchKey& key) {
        return leaf == key.leaf && text.find(std::string("${") + key.property) != std::string::npos;
    });
}

void CheckImport(const PropertyFile& file, const PropertyLine& line, const Expansion& expansion,
                 const Targets& targets, Findings* findings) {
    const auto add = [&](const Rule& rule, const std::string& message) {
        findings->Add(rule, file.path, line.number, message);
    };
    if (!expansion.malformed.empty()) {
        add(kMalformedReference, expansion.malformed);
    } else if (expansion.paths.empty() && !RefersToOwnKey(file.path, std::string(line.name))) {
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

// Checks that a line of some file passes the import's filter.
void CheckFilter(const PropertyFile& file, const PropertyLine& line, const Targets& targets,
                 const PropertyFiles& files, Findings* findings) {
    if (line.value.empty() || targets.files.empty()) return;
    const std::string filter(line.value);
    std::vector<std::string> names;
    for (const std::string& path : targets.files) {
        const PropertyFile& target = files.at(path);
        if (!target.was_read) return;
        for (const PropertyLine& candidate : PropertyLines(target.content, true)) {
            if (candidate.kind != PropertyLine::kProperty) continue;
            names.emplace_back(candidate.name);
            if (PassesFilter(names.back(), filter)) return;
        }
    }
    const std::string near = Nearest(filter, names, std::max<size_t>(2, filter.size() / 8));
    findings->Add(kIdleFilter, file.path, line.number,
                  QuotedShort(filter) +
                          ", all that stands behind the file's name, is a filter "
                          "that no line there passes, so nothing is loaded" +
                          Meant(near));
}

// Returns the lines that set what imports refer to.
Setters SettersIn(const PropertyFiles& files, const std::map<std::string, FileMoments>& moments) {
    Setters setters;
    for (const auto& [path, file] : files) {
        for (const PropertyLine& line : file.lines) {
            if (line.kind != PropertyLine::kImport) continue;
            for (const std::string& name : References(line.name)) setters[name];
        }
    }
    for (const auto& [path, file] : files) {
        const auto known = moments.find(path);
        if (known == moments.end() || setters.empty() || !SetsProperties(file)) continue;
        for (const PropertyLine& line : file.lines) {
            if (line.kind != PropertyLine::kProperty || line.value.empty()) continue;
            const auto wanted = setters.find(std::string(line.name));
            if (wanted == setters.end()) continue;
            const unsigned set_in = known->second.Of(wanted->first);
            if (set_in != 0) wanted->second.push_back({&file, &line, set_in});
        }
    }
    return setters;
}

// Whether what is set in `set_in` may be the system's in one of the moments in `loaded_in`.
bool MayBeInForce(unsigned set_in, unsigned loaded_in) {
    // Steps behind persist load these again, whenever that may be.
    constexpr unsigned kAgain = kOverlay | kData;
    for (unsigned moment = kEarly; moment < kAnyTime; moment <<= 1) {
        if ((loaded_in & moment) == 0) continue;
        const unsigned before = (moment & kAgain) != 0 ? ~moment : moment - 1;
        if ((set_in & before) != 0) return true;
    }
    return (loaded_in & (kSystems | kAnyTime | kUnsearched)) != 0;
}

// Checks that what the import refers to can have the value that files give to it.
void CheckReferences(const PropertyFile& file, const PropertyLine& line, unsigned loaded_in,
                     const Setters& all_setters, Findings* findings) {
    const std::string text(line.name);
    for (const std::string& name : References(text)) {
        const std::vector<Setter>& setters = all_setters.at(name);
        const std::string before_default = "${" + name + ":-";
        std::string fallback;
        if (const size_t at = text.find(before_default); at != std::string::npos) {
            const size_t start = at + before_default.size();
            fallback = text.substr(start, text.find('}', start) - start);
        }
        const bool is_late = std::all_of(setters.begin(), setters.end(), [&](const Setter& setter) {
            return !MayBeInForce(setter.moments, loaded_in);
        });
        const bool makes_difference =
                std::any_of(setters.begin(), setters.end(),
                            [&](const Setter& setter) { return setter.line->value != fallback; });
        // The boot loader's are there from the beginning, the stored ones from behind step early.
        const bool may_be_there =
                android::base::StartsWith(name, "ro.boot.") ||
                (android::base::StartsWith(name, "persist.") && loaded_in != kEarly);
        if (loaded_in == 0 || !is_late || !makes_difference || may_be_there) continue;
        const Setter& setter = setters.front();
        findings->Add(kLateReference, file.path, line.number,
                      "init is given what " + setter.file->path + ":" +
                              std::to_string(setter.line->number) + " sets as '" + name +
                              "' only after this file is loaded, so the import " +
                              (fallback.empty() ? "is skipped" : "takes " + QuotedShort(fallback)) +
                              ", unless something else sets it before");
        return;
    }
}

// Reports each import that closes a cycle. Returns the files that lead into one.
std::set<std::string> CheckCycles(const ImportGraph& graph, Findings* findings) {
    std::set<std::string> done, endless;
    std::vector<std::string> way;
    const std::function<void(const std::string&)> visit = [&](const std::string& path) {
        const auto imports = graph.find(path);
        if (imports == graph.end() || !done.insert(path).second) return;
        way.push_back(path);
        for (const Import& import : imports->second) {
            if (!import.is_followed()) continue;
            for (const std::string& to : *import.files) {
                const auto start = std::find(way.begin(), way.end(), to);
                if (start == way.end()) {
                    visit(to);
                    if (endless.count(to) != 0) endless.insert(path);
                    continue;
                }
                endless.insert(path);
                std::string cycle;
                for (auto step = start; step != way.end(); ++step) cycle += *step + " -> ";
                findings->Add(kImportCycle, path, import.line->number,
                              cycle + to +
                                      ": the loader follows imports without end, so the phone does "
                                      "not boot");
            }
        }
        way.pop_back();
    };
    for (const auto& [path, imports] : graph) visit(path);
    return endless;
}

// Counts the loads that come of one load of a file.
class LoadCounter {
  public:
    explicit LoadCounter(const ImportGraph& graph) : graph_(graph) {}

    struct Worst {
        uint64_t loads = 0;
        std::string file;
        int line = 1;  // that leads to most loads
    };

    // Returns the file that one load of the file at `top` loads most often.
    Worst WorstOf(const std::string& top) {
        Worst worst;
        if (Below(top) < kManyLoads) return worst;
        std::map<std::string, uint64_t> loads, follows = {{top, 1}};
        for (const std::string& path : InOrder(top)) {
            for (const Import& import : ImportsOf(path)) {
                const std::string* to = Chosen(import);
                if (to == nullptr) continue;
                loads[*to] = Sum(loads[*to], follows[path]);
                if (import.is_followed()) follows[*to] = Sum(follows[*to], follows[path]);
            }
        }
        for (const auto& [path, count] : loads) {
            if (count > worst.loads) worst = {count, path, 1};
        }
        uint64_t most = 0;
        for (const Import& import : ImportsOf(top)) {
            if (Of(import) <= most) continue;
            most = Of(import);
            worst.line = import.line->number;
        }
        return worst;
    }

  private:
    static uint64_t Sum(uint64_t a, uint64_t b) {
        constexpr uint64_t kMost = 1000000000;
        return std::min(a + b, kMost);
    }

    const std::vector<Import>& ImportsOf(const std::string& path) const {
        static const std::vector<Import> none;
        const auto known = graph_.find(path);
        return known == graph_.end() ? none : known->second;
    }

    // Of the files that an import may lead to, the one that costs most.
    const std::string* Chosen(const Import& import) {
        const std::string* chosen = nullptr;
        for (const std::string& file : *import.files) {
            if (chosen == nullptr || Below(file) > Below(*chosen)) chosen = &file;
        }
        return chosen;
    }

    uint64_t Of(const Import& import) {
        const std::string* file = Chosen(import);
        if (file == nullptr) return 0;
        return import.is_followed() ? Sum(1, Below(*file)) : 1;
    }

    // The loads that come of one of the file's.
    uint64_t Below(const std::string& path) {
        const auto [known, is_new] = below_.try_emplace(path);
        if (!is_new) return known->second;
        uint64_t loads = 0;
        for (const Import& import : ImportsOf(path)) loads = Sum(loads, Of(import));
        return below_[path] = loads;
    }

    // Returns the files behind `top`, each before those that it leads to.
    std::vector<std::string> InOrder(const std::string& top) {
        std::vector<std::string> order;
        std::set<std::string> done;
        const std::function<void(const std::string&)> visit = [&](const std::string& path) {
            if (!done.insert(path).second) return;
            for (const Import& import : ImportsOf(path)) {
                const std::string* to = Chosen(import);
                if (to != nullptr && import.is_followed()) visit(*to);
            }
            order.push_back(path);
        };
        visit(top);
        std::reverse(order.begin(), order.end());
        return order;
    }

    const ImportGraph& graph_;
    std::map<std::string, uint64_t> below_;
};

// Reports the files that no file imports and that load one file very often.
void CheckMultiplication(const ImportGraph& graph, const std::set<std::string>& endless,
                         Findings* findings) {
    std::set<std::string> imported;
    for (const auto& [path, imports] : graph) {
        for (const Import& import : imports) {
            imported.insert(import.files->begin(), import.files->end());
        }
    }
    LoadCounter counter(graph);
    for (const auto& [path, imports] : graph) {
        if (imported.count(path) != 0 || endless.count(path) != 0) continue;
        const LoadCounter::Worst worst = counter.WorstOf(path);
        if (worst.loads < kManyLoads) continue;
        findings->Add(kImportMultiplies, path, worst.line,
                      "one load of this file may load " + QuotedShort(worst.file) + " " +
                              std::to_string(worst.loads) +
                              " times, as its imports lead there on so many ways");
    }
}

}  // namespace

void CheckImports(const DeviceTree& tree, const std::map<std::string, FileMoments>& moments,
                  PropertyFiles* files, Findings* findings) {
    const auto expansions = FollowImports(tree, files, findings);
    std::map<std::string, Targets> targets;
    for (const auto& [text, expansion] : expansions) {
        targets[text] = FindTargets(tree, expansion.paths, *files);
    }
    const Setters setters = SettersIn(*files, moments);
    ImportGraph graph;
    for (const auto& [path, file] : *files) {
        const auto known = moments.find(path);
        const unsigned loaded_in = known == moments.end() ? 0 : known->second.whole;
        for (const PropertyLine& line : file.lines) {
            if (line.kind != PropertyLine::kImport) continue;
            const std::string text(line.name);
            const Targets& found = targets.at(text);
            CheckImport(file, line, expansions.at(text), found, findings);
            CheckFilter(file, line, found, *files, findings);
            if (expansions.at(text).malformed.empty()) {
                CheckReferences(file, line, loaded_in, setters, findings);
            }
            graph[path].push_back({&line, &found.files});
        }
    }
    CheckMultiplication(graph, CheckCycles(graph, findings), findings);
}

}  // namespace extprop
