// Rules on imports that lead nowhere, in a cycle, or to one file again and again.

#include <errno.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <set>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "device/imports.h"
#include "lint/import_graph.h"
#include "lint/rules.h"
#include "nearest.h"
#include "platform.h"
#include "printable.h"

namespace extprop {

namespace {

constexpr const Rule& kMissingImport = RuleNamed("missing-import");
constexpr const Rule& kMissingVariant = RuleNamed("missing-variant");
constexpr const Rule& kMalformedReference = RuleNamed("malformed-reference");
constexpr const Rule& kUnsetReference = RuleNamed("unset-reference");
constexpr const Rule& kLateReference = RuleNamed("late-reference");
constexpr const Rule& kIdleFilter = RuleNamed("idle-filter");

// How many choices of values are expanded.
constexpr size_t kMostFollowed = 1000;

// How many lines are compared with the filters of imports.
constexpr size_t kMostCompared = 10'000'000;

// The prefix of properties that the boot loader sets, so that no boot here shows their values.
constexpr char kBootLoaders[] = "ro.boot.";

// The expansions of an imported file's name with the values that files give to its references.
struct Expansions {
    std::set<std::string> paths;
    std::string malformed;  // the library's message, if no values make it expand
    std::string unset;      // the library's message, if no file sets a property in it
};

using PropertyValues = std::map<std::string, std::set<std::string>, std::less<>>;

bool SetsProperties(const PropertyFile& file) {
    return file.use != FileUse::kMapping && file.use != FileUse::kDeviceName;
}

PropertyValues ValuesIn(const PropertyFiles& files) {
    PropertyValues values;
    for (const auto& [path, file] : files) {
        if (!SetsProperties(file)) continue;
        for (const PropertyLine& line : file.lines) {
            if (line.kind == PropertyLine::kProperty && !line.value.empty()) {
                values[std::string(line.name)].insert(std::string(line.value));
            }
        }
    }
    return values;
}

// Expands the name without any property, as early in a boot, and with every choice of values that
// its properties may have.
Expansions Expand(const std::string& name, const PropertyValues& values) {
    Expansions expansions;
    expansions.malformed = SyntaxFault(name);
    if (!expansions.malformed.empty()) return expansions;
    std::vector<platform::PropertyMap> choices(1);
    for (const std::string& reference : References(name)) {
        const auto known = values.find(reference);
        if (known == values.end()) continue;
        const size_t before = choices.size();
        for (const std::string& value : known->second) {
            for (size_t i = 0; i < before && choices.size() < kMostFollowed; ++i) {
                choices.push_back(choices[i]);
                choices.back()[reference] = value;
            }
        }
    }
    for (platform::PropertyMap& choice : choices) {
        platform::ResetProperties(std::move(choice));
        const Expansion expansion = extprop::Expand(name);
        if (expansion.fault.empty()) {
            expansions.paths.insert(expansion.path);
        } else {
            expansions.unset = expansion.fault;
        }
    }
    return expansions;
}

// Expands the names of the imported files and adds those files to `*files`. Repeats this with the
// properties of the added files until nothing is new. Returns the expansions.
std::map<std::string, Expansions> FollowImports(const DeviceTree& tree, PropertyFiles* files,
                                                Findings* findings) {
    std::map<std::string, Expansions> expansions;
    size_t known;
    do {
        known = files->size();
        const PropertyValues values = ValuesIn(*files);
        expansions.clear();
        for (const auto& [path, file] : *files) {
            for (const PropertyLine& line : file.lines) {
                if (line.kind != PropertyLine::kImport) continue;
                const std::string name(line.name);
                if (expansions.count(name) == 0) expansions[name] = Expand(name, values);
            }
        }
        for (const auto& [name, known_paths] : expansions) {
            for (const std::string& path : known_paths.paths) {
                FoundFile place;
                if (!tree.Find(path, false, &place) || !place.is_file()) continue;
                AddPropertyFile(tree, place, FileUse::kProperties, files, findings);
            }
        }
    } while (files->size() != known);
    return expansions;
}

// Returns the paths that are files.
std::vector<std::string> FilesAt(const DeviceTree& tree, const std::set<std::string>& paths) {
    std::vector<std::string> files;
    for (const std::string& path : paths) {
        FoundFile place;
        if (tree.Find(path, false, &place) && place.is_file()) files.push_back(place.path);
    }
    return files;
}

// What boots showed of an import line.
struct Seen {
    size_t boots = 0;                                                // that reached it
    std::map<std::string, std::vector<const CoveredBoot*>> missing;  // by the path to which it led
    bool leads_to_file = false;
    std::vector<std::set<std::string>> values;           // of its references
    std::map<std::string, std::set<std::string>> given;  // to the references, at any time
};
using SeenImports = std::map<std::pair<std::string, int>, Seen>;

// Returns what the boots show of each import line. Only boots of phones that the device can become
// count: what happens only with further steps or properties is no fault.
SeenImports SeenIn(const Coverage& coverage) {
    SeenImports seen;
    for (const CoveredBoot& boot : coverage.boots()) {
        if (!boot.is_phone) continue;
        std::set<std::pair<std::string, int>> counted;
        for (const RecordedImport& import : boot.record.imports) {
            Seen& entry = seen[{import.file, import.line}];
            if (counted.insert({import.file, import.line}).second) ++entry.boots;
            entry.leads_to_file |= import.leads_to_file;
            if (!import.leads_to_file && !import.path.empty()) {
                auto& boots = entry.missing[import.path];
                if (boots.empty() || boots.back() != &boot) boots.push_back(&boot);
            }
            entry.values.resize(import.values.size());
            for (size_t i = 0; i < import.values.size(); ++i) {
                entry.values[i].insert(import.values[i]);
            }
            for (const auto& [name, values] : boot.record.given) {
                entry.given[name].insert(values.begin(), values.end());
            }
        }
    }
    return seen;
}

// Checks the imports of one device.
class ImportChecker {
  public:
    ImportChecker(const DeviceTree& tree, const Coverage* coverage, const PropertyFiles& files,
                  Findings* findings)
            : tree_(tree), coverage_(coverage), files_(files), findings_(findings) {
        if (coverage == nullptr) return;
        seen_ = SeenIn(*coverage);
        for (const CoveredBoot& boot : coverage->boots()) phones_ += boot.is_phone;
    }

    void Check(const PropertyFile& file, const PropertyLine& line, const Expansions& expansions) {
        const std::string name(line.name);
        const auto seen = seen_.find({file.path, line.number});
        CheckName(file, line, expansions);
        CheckLinks(file, line, expansions);
        if (!expansions.malformed.empty()) return;
        const std::vector<std::string> references = References(name);
        const bool is_outside =
                std::any_of(references.begin(), references.end(), [](const std::string& reference) {
                    return android::base::StartsWith(reference, kBootLoaders);
                });
        if (references.empty() || is_outside) {
            CheckTargets(file, line, expansions, seen == seen_.end() ? nullptr : &seen->second);
        } else if (seen != seen_.end()) {
            CheckSeen(file, line, seen->second);
            CheckReferences(file, line, references, seen->second);
        }
    }

  private:
    void Add(const PropertyFile& file, const PropertyLine& line, const Rule& rule,
             const std::string& message) {
        findings_->Add(rule, file.path, line.number, message);
    }

    void CheckName(const PropertyFile& file, const PropertyLine& line,
                   const Expansions& expansions) {
        if (!expansions.malformed.empty()) {
            Add(file, line, kMalformedReference, expansions.malformed);
        } else if (expansions.paths.empty() && !RefersToOwnKey(file.path, line.name)) {
            Add(file, line, kUnsetReference,
                expansions.unset +
                        ": no property file of the device sets it, so it must come from elsewhere");
        }
    }

    // Returns whether the text refers to the switch key whose directory holds the file, so that the
    // key is in force whenever the file is read.
    static bool RefersToOwnKey(const std::string& path, std::string_view text) {
        if (!IsOfSwitchKey(path)) return false;
        const std::string leaf = android::base::Basename(android::base::Dirname(path));
        return std::any_of(SwitchKeys().begin(), SwitchKeys().end(), [&](const SwitchKey& key) {
            return leaf == key.leaf &&
                   text.find(std::string("${") + key.property) != std::string_view::npos;
        });
    }

    void CheckLinks(const PropertyFile& file, const PropertyLine& line,
                    const Expansions& expansions) {
        std::vector<std::string> links;
        for (const std::string& path : expansions.paths) {
            FoundFile place;
            if (tree_.Find(path, false, &place) && place.is_link()) {
                links.push_back(QuotedShort(path));
            }
        }
        if (links.empty()) return;
        Add(file, line, kSymbolicLink, FirstOf(links) + kIsSymbolicLink);
    }

    // Returns the first of them and how many more there are.
    static std::string FirstOf(const std::vector<std::string>& texts) {
        if (texts.size() == 1) return texts[0];
        return texts[0] + " (and " + std::to_string(texts.size() - 1) + " more like it)";
    }

    // Returns why the path is no file, or "" if it is a file, or a link, on which another rule
    // reports.
    std::string WhyMissing(const std::string& path) const {
        FoundFile place;
        if (!tree_.Find(path, false, &place)) return QuotedShort(path) + ": " + strerror(errno);
        return place.is_file() || place.is_link() ? "" : QuotedShort(path) + " is not a file";
    }

    // Checks what no boot can show: names without references, and names that depend on what is set
    // outside the device's files.
    void CheckTargets(const PropertyFile& file, const PropertyLine& line,
                      const Expansions& expansions, const Seen* seen) {
        if (seen != nullptr && seen->leads_to_file && expansions.paths.size() < 2) return;
        std::vector<std::string> missing;
        bool leads_to_file = false;
        for (const std::string& path : expansions.paths) {
            const std::string why = WhyMissing(path);
            if (!why.empty()) missing.push_back(why);
            leads_to_file |= why.empty();
        }
        if (missing.empty()) return;
        if (leads_to_file) {
            Add(file, line, kMissingVariant,
                FirstOf(missing) + ", and one value of the property in the name leads there");
        } else {
            Add(file, line, kMissingImport,
                FirstOf(missing) + ", so what the import should set is unset on the phone");
        }
    }

    void CheckSeen(const PropertyFile& file, const PropertyLine& line, const Seen& seen) {
        const std::pair<const std::string, std::vector<const CoveredBoot*>>* worst = nullptr;
        for (const auto& missing : seen.missing) {
            if (WhyMissing(missing.first).empty()) continue;  // a link, or other boots make it
            if (worst == nullptr || missing.second.size() > worst->second.size()) worst = &missing;
        }
        if (worst == nullptr) return;
        const std::vector<std::string>& words = worst->second.front()->words;
        Add(file, line, seen.leads_to_file ? kMissingVariant : kMissingImport,
            "in " + std::to_string(worst->second.size()) + " of " +
                    Count(phones_, "boot", "boots") + " this import leads to " +
                    QuotedShort(worst->first) + ", which is not there; " +
                    (words.empty() ? "the device as it is" : Quoted(ShellWords(words))) +
                    " is the first");
    }

    // Checks that the import's references can have the values that files give to them.
    void CheckReferences(const PropertyFile& file, const PropertyLine& line,
                         const std::vector<std::string>& references, const Seen& seen) {
        for (size_t i = 0; i < references.size(); ++i) {
            const std::string& name = references[i];
            const auto given = seen.given.find(name);
            // Stored properties take effect after step early.
            const bool may_be_stored =
                    android::base::StartsWith(name, "persist.") && IsLoadedLate(file.path);
            if (given == seen.given.end() || seen.values[i] != std::set<std::string>{""} ||
                may_be_stored) {
                continue;
            }
            const std::string fallback = FallbackOf(name, std::string(line.name));
            const PropertyFile* setter = nullptr;
            const PropertyLine* setting = nullptr;
            bool is_systems = false;
            for (const auto& [path, other] : files_) {
                for (const PropertyLine& candidate : other.lines) {
                    if (candidate.name != name || candidate.kind != PropertyLine::kProperty)
                        continue;
                    is_systems |= IsSystems(path);
                    const std::string value(candidate.value);
                    if (setter != nullptr || value == fallback || value.empty()) continue;
                    if (given->second.count(value) == 0) continue;
                    setter = &other;
                    setting = &candidate;
                }
            }
            if (setter == nullptr || is_systems) continue;
            Add(file, line, kLateReference,
                setter->path + ":" + std::to_string(setting->number) + " sets '" + name +
                        "', but init gets it only after this file is loaded, so the import " +
                        (fallback.empty() ? "is skipped" : "takes " + QuotedShort(fallback)) +
                        ", unless something else sets it before");
            return;
        }
    }

    bool IsLoadedLate(const std::string& path) const {
        const std::set<std::string>& steps = coverage_->StepsThatLoad(path);
        return std::any_of(steps.begin(), steps.end(),
                           [](const std::string& step) { return step != "early"; });
    }

    static std::string FallbackOf(const std::string& name, const std::string& text) {
        const std::string before = "${" + name + ":-";
        const size_t at = text.find(before);
        if (at == std::string::npos) return "";
        const size_t start = at + before.size();
        return text.substr(start, text.find('}', start) - start);
    }

    const DeviceTree& tree_;
    const Coverage* coverage_;
    const PropertyFiles& files_;
    Findings* findings_;
    SeenImports seen_;
    size_t phones_ = 0;
};

// Checks that some line of the imported files passes the import's filter. `*left` is how many lines
// may still be compared with filters, since a device may have many of both; then there is no check.
void CheckFilter(const PropertyFile& file, const PropertyLine& line,
                 const std::vector<std::string>& targets, const PropertyFiles& files, size_t* left,
                 Findings* findings) {
    if (line.value.empty() || targets.empty()) return;
    const std::string filter(line.value);
    std::vector<std::string> names;
    for (const std::string& path : targets) {
        const PropertyFile& target = files.at(path);
        if (!target.was_read) return;
        if (*left == 0) return;
        for (const PropertyLine& candidate : PropertyLines(target.content, true)) {
            if (*left == 0) return;
            --*left;
            if (candidate.kind != PropertyLine::kProperty) continue;
            names.emplace_back(candidate.name);
            if (PassesFilter(names.back(), filter)) return;
        }
    }
    constexpr size_t kMostNames = 10'000;
    const std::string near =
            names.size() > kMostNames
                    ? ""
                    : Nearest(filter, names, std::max<size_t>(2, filter.size() / 8));
    findings->Add(
            kIdleFilter, file.path, line.number,
            QuotedShort(filter) +
                    ", all that follows the file's name, is a filter that no line of the file "
                    "passes, so nothing is loaded" +
                    Suggestion(near));
}

}  // namespace

void CheckImports(const DeviceTree& tree, const Coverage* coverage, PropertyFiles* files,
                  Findings* findings) {
    const auto expansions = FollowImports(tree, files, findings);
    std::map<std::string, std::vector<std::string>> targets;
    for (const auto& [name, expanded] : expansions) targets[name] = FilesAt(tree, expanded.paths);
    ImportChecker checker(tree, coverage, *files, findings);
    ImportGraph graph;
    size_t left = kMostCompared;
    for (const auto& [path, file] : *files) {
        for (const PropertyLine& line : file.lines) {
            if (line.kind != PropertyLine::kImport) continue;
            const std::string name(line.name);
            checker.Check(file, line, expansions.at(name));
            CheckFilter(file, line, targets.at(name), *files, &left, findings);
            graph[path].push_back({&line, &targets.at(name)});
        }
    }
    CheckImportGraph(graph, findings);
}

}  // namespace extprop
