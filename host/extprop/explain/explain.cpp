#include "explain/explain.h"

#include <fnmatch.h>

#include <algorithm>
#include <stdexcept>

#include "coverage/coverage.h"
#include "coverage/idle.h"
#include "coverage/workers.h"
#include "device/property_text.h"
#include "nearest.h"

namespace extprop {

namespace {

bool MatchesPattern(const std::string& name, const std::string& pattern) {
    return pattern == kEverything || fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
}

}  // namespace

bool Matches(const std::string& name, const std::vector<std::string>& patterns) {
    return std::any_of(patterns.begin(), patterns.end(),
                       [&](const std::string& pattern) { return MatchesPattern(name, pattern); });
}

std::vector<std::string> Unmatched(const std::vector<std::string>& patterns,
                                   const std::vector<std::string>& names) {
    std::vector<std::string> unmatched;
    for (const std::string& pattern : patterns) {
        const bool found = pattern == kEverything ||
                           std::any_of(names.begin(), names.end(), [&](const std::string& name) {
                               return MatchesPattern(name, pattern);
                           });
        if (!found) unmatched.push_back(pattern);
    }
    return unmatched;
}

namespace {

// Returns the origin of a file's lines that did not load, without line and value.
Origin UnloadedOrigin(const SurveyedFile& file, const sandbox::Sandbox& root) {
    Origin origin;
    origin.kind = OriginKind::kFile;
    origin.fate = Fate::kNotLoaded;
    origin.file = file.path;
    origin.source = file.source;
    origin.image = root.ImageOf(origin.own_file());
    return origin;
}

// Adds the lines with matching names that no load has read.
void AddUnloaded(const Survey& survey, const std::vector<std::string>& patterns,
                 const sandbox::Sandbox& root, Origins* origins) {
    for (const SurveyedFile& file : survey.files) {
        Origin origin = UnloadedOrigin(file, root);
        for (const LineRead& line : file.lines) {
            if (!Matches(line.name, patterns)) continue;
            std::vector<Origin>& known = (*origins)[line.name];
            const bool is_known = std::any_of(known.begin(), known.end(), [&](const Origin& other) {
                return other.kind == OriginKind::kFile && other.line == line.number &&
                       other.own_file() == origin.own_file();
            });
            if (is_known) continue;
            origin.line = line.number;
            origin.value = line.value;
            known.push_back(origin);
        }
    }
}

// Returns the lines that did not load and for which `is_asked` returns true.
std::vector<std::pair<std::string, Origin*>> Unloaded(const IsAsked& is_asked,
                                                      Explanation* explanation) {
    std::vector<std::pair<std::string, Origin*>> unloaded;
    for (ExplainedProperty& property : explanation->properties) {
        for (Origin& origin : property.origins) {
            if (!origin.did_not_load() || !is_asked(property, origin)) continue;
            unloaded.emplace_back(property.name, &origin);
        }
    }
    return unloaded;
}

// Puts into each origin the words that make a boot load its line.
void AskCoverage(const std::vector<std::pair<std::string, Origin*>>& unloaded,
                 PreparedDevice* device, const BootOptions& options, const Survey& survey,
                 Report* report) {
    if (unloaded.empty()) return;
    try {
        const Coverage coverage(device, options, survey, ProcessorCount());
        for (const auto& [name, origin] : unloaded) {
            origin->required = coverage.WordsFor(origin->own_file(), name);
            origin->tried = static_cast<int>(coverage.boots().size());
        }
        if (coverage.is_stopped()) {
            report->notes.emplace_back(
                    std::string("what loads a line that did not load may be unknown: ") + kStopped);
        }
    } catch (const std::runtime_error& error) {
        report->notes.emplace_back(
                std::string("the words that load the lines that did not load are unknown: ") +
                error.what());
    }
}

// Puts the failure as the reason into the origins whose fate it leaves unknown: what the failing
// step loaded, and what the boot did not reach.
void AddFailureReasons(const BootFailure& failure, Explanation* explanation) {
    for (ExplainedProperty& property : explanation->properties) {
        for (Origin& origin : property.origins) {
            if (origin.fate == Fate::kNotHandedOn && origin.step == failure.step) {
                origin.reason = "the library did not survive the step";
            } else if (origin.fate == Fate::kNotLoaded && !origin.required) {
                origin.reason = "the library did not survive the boot";
            }
        }
    }
}

// Adds the sandbox's notes, including those on look-ups after the boot.
void AddNotes(const sandbox::Sandbox& root, Report* report) {
    try {
        for (std::string& note : root.Notes()) {
            const auto& known = report->notes;
            if (std::find(known.begin(), known.end(), note) != known.end()) continue;
            report->notes.push_back(std::move(note));
        }
    } catch (const std::runtime_error&) {
        // Damage was reported when it was met.
    }
}

// Adds the operations that could have set properties but did not, with what they read.
void AddIdle(const std::map<std::string, std::vector<OperationInput>>& idle,
             const std::vector<std::string>& patterns, const std::vector<std::string>& values,
             Explanation* explanation) {
    constexpr struct {
        const char* operation;
        const char* property;
    } kMade[] = {
            {"updateMarketName", "ro.vendor.tesvo.market.name"},
            {"updateMarketName", "ro.product.littletail_type"},
            {"updateMarketName", "ro.product.littletail_model"},
            {"loadSpecialProperties", "ro.vendor.tesvo.exp.version"},
            {"loadSpecialProperties", "ro.tesvo.customize.display.version_name"},
            {"loadCustomizeDisplayVersionName", "ro.tesvo.customize.display.version_name"},
            {"checkAndRestoreChannelInfo", "persist.sys.recopy.preload.opinstalled"},
    };
    if (!values.empty()) return;
    auto& properties = explanation->properties;
    for (const auto& made : kMade) {
        const auto read = idle.find(made.operation);
        if (read == idle.end() || !Matches(made.property, patterns)) continue;
        const bool is_asked = std::count(patterns.begin(), patterns.end(), made.property) != 0;
        auto place = std::lower_bound(properties.begin(), properties.end(), made.property,
                                      [](const ExplainedProperty& property, const char* name) {
                                          return property.name < name;
                                      });
        const bool is_there = place != properties.end() && place->name == made.property;
        if (!is_there && !is_asked) continue;
        if (!is_there) place = properties.insert(place, {made.property, std::nullopt, {}, {}});
        if (place->value) continue;
        place->idle.push_back(std::string(made.operation) + " derived nothing from " +
                              InputsText(read->second));
    }
}

// Removes the origins without one of the values.
void KeepValues(const std::vector<std::string>& values, Origins* origins) {
    const auto is_other = [&](const Origin& origin) {
        return std::find(values.begin(), values.end(), origin.value) == values.end();
    };
    for (auto& [name, known] : *origins) {
        known.erase(std::remove_if(known.begin(), known.end(), is_other), known.end());
    }
}

// Fills the hints: what the patterns that match nothing may have been meant to be.
void FindHints(const PreparedDevice& device, std::chrono::seconds limit, const Report& report,
               Explanation* explanation) {
    explanation->hints.resize(explanation->unknown.size());
    if (explanation->unknown.empty()) return;
    std::set<std::string> names;
    std::map<std::string, std::string> name_of;  // by value
    const auto add = [&](const std::string& name, const std::string& value) {
        names.insert(name);
        name_of.emplace(value, name);
    };
    for (const auto& [name, value] : report.properties) add(name, value);
    try {
        const auto all = [](const std::string&) { return true; };
        for (const SurveyedFile& file : TakeSurvey(device.root(), all, limit).files) {
            for (const LineRead& line : file.lines) add(line.name, line.value);
        }
    } catch (const std::runtime_error&) {
        // Then only the boot's own names and values are compared.
    }
    for (size_t i = 0; i < explanation->unknown.size(); ++i) {
        explanation->hints[i] =
                HintOf(explanation->unknown[i], {names.begin(), names.end()}, name_of);
    }
}

}  // namespace

std::string HintOf(const std::string& word, const std::vector<std::string>& names,
                   const std::map<std::string, std::string>& name_of) {
    constexpr size_t kNear = 3;
    if (const auto value = name_of.find(word); value != name_of.end() && !word.empty()) {
        return "; this is a value, of " + value->second + "; look for values with --value";
    }
    const std::string step = NearestStep(word);
    return Suggestion(step.empty() ? Nearest(word, names, std::min(kNear, word.size() / 3)) : step);
}

namespace {

using IdleOperations = std::map<std::string, std::vector<OperationInput>>;

Explanation ExplainValues(PreparedDevice* device, const BootOptions& options,
                          const std::vector<std::string>& patterns,
                          const std::vector<std::string>& values, const IsAsked& is_asked,
                          Report* report, IdleOperations* idle) {
    const auto matches = [&](const std::string& name) { return Matches(name, patterns); };
    std::optional<Survey> survey;
    std::string why_none;
    try {
        survey = TakeSurvey(device->root(), matches, options.time_limit);
    } catch (const std::runtime_error& error) {
        why_none = error.what();
    }
    Tracer tracer;
    *report = device->Boot(&tracer, matches);
    Origins origins = tracer.Origins();
    *idle = tracer.idle();
    if (survey) AddUnloaded(*survey, patterns, device->root(), &origins);
    if (!values.empty()) KeepValues(values, &origins);

    Explanation explanation;
    explanation.device = report->device;
    for (auto& [name, places] : origins) {
        if (!matches(name) || places.empty()) continue;
        explanation.properties.push_back(
                {name, ValueIn(report->properties, name), std::move(places), {}});
    }
    if (survey) {
        AskCoverage(Unloaded(is_asked, &explanation), device, options, *survey, report);
    } else {
        report->notes.push_back("lines of files that were not loaded are not listed: " + why_none);
    }
    if (report->failure) AddFailureReasons(*report->failure, &explanation);
    return explanation;
}

// Fills the list of patterns and values that match nothing.
void FindUnknown(const std::vector<std::string>& patterns, const std::vector<std::string>& values,
                 Explanation* explanation) {
    std::vector<std::string> names;
    std::set<std::string> found;
    for (const ExplainedProperty& property : explanation->properties) {
        names.push_back(property.name);
        for (const Origin& origin : property.origins) found.insert(origin.value);
    }
    explanation->unknown = Unmatched(patterns, names);
    for (const std::string& value : values) {
        if (found.count(value) == 0) explanation->unknown.push_back(value);
    }
}

}  // namespace

Explanation Explain(const BootOptions& options, const std::vector<std::string>& patterns,
                    Report* report, const std::vector<std::string>& values) {
    PreparedDevice device(options);
    const auto all = [](const ExplainedProperty&, const Origin&) { return true; };
    IdleOperations idle;
    Explanation explanation = ExplainValues(&device, options, patterns, values, all, report, &idle);
    AddIdle(idle, patterns, values, &explanation);
    FindUnknown(patterns, values, &explanation);
    FindHints(device, options.time_limit, *report, &explanation);
    NoteIdleWhatIfs(&device, options, report);
    AddNotes(device.root(), report);
    return explanation;
}

Explanation Explain(PreparedDevice* device, const BootOptions& options,
                    const std::vector<std::string>& patterns, const IsAsked& is_asked,
                    Report* report) {
    IdleOperations idle;
    Explanation explanation = ExplainValues(device, options, patterns, {}, is_asked, report, &idle);
    FindUnknown(patterns, {}, &explanation);
    return explanation;
}

std::string OriginText(const Origin& origin) {
    std::string text;
    if (origin.step) text += *origin.step + " ";
    if (origin.boot.value_or(1) != 1) text += "(boot " + std::to_string(*origin.boot) + ") ";
    switch (origin.kind) {
        case OriginKind::kGiven:
            return text + "given";
        case OriginKind::kRequest:
            return text + "requested by the installing service";
        case OriginKind::kFile:
            text += origin.file + ":" + std::to_string(origin.line);
            if (origin.source) text += " (" + *origin.source + ")";
            if (origin.image) text += " (" + Name(*origin.image) + ")";
            if (origin.written) text += " (written by the boot)";
            if (origin.changed_for == "variant") text += " (set for the variant)";
            if (origin.changed_for == "edit") text += " (set by --edit)";
            if (origin.imported_by) text += " (imported by " + *origin.imported_by + ")";
            return text;
        case OriginKind::kOperation:
            break;
    }
    if (origin.operations.empty()) return text + "set by the library's bind thread";
    const char* separator = "derived by ";
    for (const std::string& operation : origin.operations) {
        text += separator + operation;
        separator = " < ";
    }
    if (const std::string from = DerivedFromText(origin); !from.empty()) text += " from " + from;
    return text;
}

namespace {

std::string PlaceText(const OperationInput& input) {
    if (!input.file) return input.name;
    return *input.file + (input.line > 0 ? ":" + std::to_string(input.line) : "");
}

}  // namespace

namespace {

// Returns whether one text contains the other, or the value is the input with a piece inserted.
bool IsMadeOf(const std::string& value, const std::string& input) {
    if (value.empty() || input.empty()) return false;
    if (input.find(value) != std::string::npos) return true;
    if (input.size() > value.size()) return false;
    const auto first = std::mismatch(input.begin(), input.end(), value.begin());
    const auto last = std::mismatch(input.rbegin(), input.rend(), value.rbegin());
    const auto alike = (first.first - input.begin()) + (last.first - input.rbegin());
    return alike >= static_cast<ptrdiff_t>(input.size()) || value.find(input) != std::string::npos;
}

}  // namespace

std::string DerivedFromText(const Origin& origin) {
    std::string text;
    std::set<std::string> places;
    for (const OperationInput& input : origin.inputs) {
        const bool is_part = IsMadeOf(origin.value, input.value);
        const std::string place = PlaceText(input);
        if (is_part && places.insert(place).second) text += (text.empty() ? "" : " and ") + place;
    }
    return text;
}

std::string InputsText(const std::vector<OperationInput>& inputs) {
    std::string text;
    std::set<std::string> seen;
    for (const OperationInput& input : inputs) {
        std::string each = input.name + (input.value.empty() ? " unset" : "=" + input.value);
        if (input.file && *input.file != input.name) each += " (" + PlaceText(input) + ")";
        if (seen.insert(each).second) text += (text.empty() ? "" : ", ") + each;
    }
    return text;
}

const char* Name(Fate fate) {
    constexpr const char* kNames[] = {
            "wins",    "overridden", "not handed on", "gone with the reboot",
            "refused", "looked up",  "filtered out",  "not loaded"};
    return kNames[static_cast<int>(fate)];
}

}  // namespace extprop
