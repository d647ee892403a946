#include "explain/explain.h"

#include <fnmatch.h>

#include <algorithm>
#include <map>
#include <set>

#include "device/property_lines.h"
#include "explain/requirements.h"
#include "input_error.h"

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

// Boots the device again with words added to its command line.
class Trials {
  public:
    Trials(PreparedDevice* device, const BootOptions& options)
            : device_(device), options_(options) {}

    bool Load(const Words& words, const SurveyedFile& file, const std::string& name) {
        auto [loads, is_new] = known_.try_emplace(words);
        if (is_new) loads->second = LoadsOf(words);
        const std::string& own = file.source ? *file.source : file.path;
        const auto [begin, end] = loads->second.equal_range(own);
        return std::any_of(begin, end,
                           [&](const auto& load) { return PassesFilter(name, load.second); });
    }

  private:
    using FilesAndFilters = std::multimap<std::string, std::string>;  // the device's own files

    FilesAndFilters LoadsOf(const Words& words) {
        BootOptions options = options_;
        options.plan.detail = Detail::kOrigins;
        // A command line that names a step has none of those that go without saying.
        if (options.names_no_steps && std::any_of(words.begin(), words.end(), IsStepWord)) {
            options.plan.steps.clear();
        }
        Report report;
        try {
            AddWords(words, &options);
            device_->Reset(options);
            report = device_->Boot();
        } catch (const InputError&) {
            return {};  // an edit that cannot be made
        }
        FilesAndFilters loads;
        for (const StepReport& step : report.steps) {
            for (const Event& event : step.events) {
                const auto* load = std::get_if<LoadEvent>(&event);
                if (load == nullptr || report.failure) continue;
                loads.emplace(load->source.value_or(load->path), load->filter.value_or(""));
            }
        }
        return loads;
    }

    PreparedDevice* device_;
    const BootOptions& options_;
    std::map<Words, FilesAndFilters> known_;
};

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

// Adds the lines that no load has come to, and says of all that did not load what it takes.
void AddUnloaded(const Survey& survey, const std::vector<std::string>& patterns,
                 const sandbox::Sandbox& root, Requirements* requirements, Origins* origins) {
    for (auto& [name, known] : *origins) {
        if (!Matches(name, patterns)) continue;
        for (Origin& origin : known) {
            if (origin.did_not_load())
                origin.required = requirements->WordsFor(origin.own_file(), name);
        }
    }
    for (const SurveyedFile& file : survey.files) {
        Origin origin = UnloadedOrigin(file, root);
        for (const LineRead& line : file.lines) {
            if (!Matches(line.name, patterns)) continue;
            std::vector<Origin>& known = (*origins)[line.name];
            bool is_known = false;
            for (const Origin& other : known) {
                is_known |= other.kind == OriginKind::kFile && other.line == line.number &&
                            other.own_file() == origin.own_file();
            }
            if (is_known) continue;
            origin.line = line.number;
            origin.value = line.value;
            origin.required = requirements->WordsFor(file, line.name);
            known.push_back(origin);
        }
    }
}

}  // namespace

Explanation Explain(const BootOptions& options, const std::vector<std::string>& patterns,
                    Report* report) {
    PreparedDevice device(options);
    std::set<std::string> controls(Requirements::ControlProperties().begin(),
                                   Requirements::ControlProperties().end());
    const auto matches = [&](const std::string& name) { return Matches(name, patterns); };
    auto survey = TakeSurvey(device.root(), matches, options.time_limit);
    const bool surveyed = survey.has_value();
    if (!surveyed) survey.emplace();
    controls.insert(survey->references.begin(), survey->references.end());

    Tracer tracer;
    *report = device.Boot(&tracer, [&](const std::string& name) {
        return controls.count(name) != 0 || matches(name);
    });
    if (!surveyed) {
        report->notes.emplace_back(std::string("the files that were not loaded are not told of: ") +
                                   kNoSurvey);
    }
    Trials trials(&device, options);
    const Loads loads = [&](const Words& words, const SurveyedFile& file, const std::string& name) {
        return trials.Load(words, file, name);
    };
    Requirements requirements(*survey, tracer, *report, options, loads);
    Origins origins = tracer.Origins();
    AddUnloaded(*survey, patterns, device.root(), &requirements, &origins);

    Explanation explanation;
    explanation.device = report->device;
    for (auto& [name, places] : origins) {
        if (!matches(name) || places.empty()) continue;
        ExplainedProperty property{name, std::nullopt, std::move(places)};
        auto value = report->properties.find(name);
        if (value != report->properties.end()) property.value = value->second;
        explanation.properties.push_back(std::move(property));
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
