#include "explain/explain.h"

#include <fnmatch.h>

#include <algorithm>
#include <stdexcept>

#include "coverage/coverage.h"
#include "coverage/workers.h"

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

// The origin that the lines of a file that did not load have in common.
Origin UnloadedOrigin(const SurveyedFile& file, const sandbox::Sandbox& root) {
    Origin origin;
    origin.kind = OriginKind::kFile;
    origin.fate = Fate::kNotLoaded;
    origin.file = file.path;
    origin.source = file.source;
    origin.image = root.ImageOf(origin.own_file());
    return origin;
}

// Adds the lines of wanted names that no load has come to.
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

// Returns those that did not load of which it is asked.
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

// Says of each line what it takes to load it.
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
    } catch (const std::runtime_error& error) {
        report->notes.emplace_back(
                std::string("it was not tried what would load the lines that did not load: ") +
                error.what());
    }
}

}  // namespace

Explanation Explain(const BootOptions& options, const std::vector<std::string>& patterns,
                    Report* report) {
    PreparedDevice device(options);
    const auto all = [](const ExplainedProperty&, const Origin&) { return true; };
    return Explain(&device, options, patterns, all, report);
}

Explanation Explain(PreparedDevice* device, const BootOptions& options,
                    const std::vector<std::string>& patterns, const IsAsked& is_asked,
                    Report* report) {
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
    if (survey) AddUnloaded(*survey, patterns, device->root(), &origins);

    Explanation explanation;
    explanation.device = report->device;
    for (auto& [name, places] : origins) {
        if (!matches(name) || places.empty()) continue;
        ExplainedProperty property{name, std::nullopt, std::move(places)};
        auto value = report->properties.find(name);
        if (value != report->properties.end()) property.value = value->second;
        explanation.properties.push_back(std::move(property));
    }
    if (survey) {
        AskCoverage(Unloaded(is_asked, &explanation), device, options, *survey, report);
    } else {
        report->notes.push_back("the files that were not loaded are not told of: " + why_none);
    }
    std::vector<std::string> names;
    for (const ExplainedProperty& property : explanation.properties) names.push_back(property.name);
    explanation.unknown = Unmatched(patterns, names);
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
    return text;
}

const char* Name(Fate fate) {
    constexpr const char* kNames[] = {
            "wins",    "overridden", "not handed on", "gone with the reboot",
            "refused", "looked up",  "filtered out",  "not loaded"};
    return kNames[static_cast<int>(fate)];
}

}  // namespace extprop
