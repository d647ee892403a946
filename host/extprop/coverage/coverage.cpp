#include "coverage/coverage.h"

#include <algorithm>
#include <functional>

#include <android-base/file.h>

#include "boot/delta_fields.h"
#include "boot/init_process.h"
#include "boot/report_fields.h"
#include "coverage/workers.h"
#include "device/legal.h"
#include "device/places.h"
#include "device/property_lines.h"
#include "input_error.h"

namespace extprop {

namespace {

using Steps = std::vector<std::string>;

// After this many boots, places with steps, imports and shorter words are no longer tried.
constexpr size_t kMostBoots = 5000;

// The step that names a directory.
constexpr char kOwnStep[] = "early:";

// How many choices of an import's values that lead to one file are tried.
constexpr size_t kMostChoices = 64;

// How many steps finding all these choices takes at most.
constexpr size_t kMostSteps = 10'000'000;

// How many boots with different values of an import's references are kept for it.
constexpr size_t kMostContexts = 16;

// Every step of the library except those that load nothing by themselves: copies of the logo,
// media, and the bind thread, which waits for requests.
const Steps& KnownSteps() {
    static const Steps steps = [] {
        Steps words;
        for (const StepKind& kind : StepKinds()) {
            if (kind.perform == nullptr) continue;
            if (kind.argument == nullptr) words.emplace_back(kind.word);
            for (const char* argument : kind.arguments) {
                const Step step = ParseStep(std::string(kind.word) + ":" + argument);
                if (!step.copies_logo() && !step.starts_bind_thread()) words.push_back(step.text);
            }
        }
        return words;
    }();
    return steps;
}

Steps operator+(Steps steps, const std::string& step) {
    steps.push_back(step);
    return steps;
}

size_t SlashesIn(const ReferenceValues& values) {
    size_t slashes = 0;
    for (const auto& [name, value] : values) {
        slashes += std::count(value.begin(), value.end(), '/');
    }
    return slashes;
}

int AxesOf(const Variant& variant) {
    return static_cast<int>(std::count_if(variant.begin(), variant.end(),
                                          [](const auto& value) { return value.has_value(); }));
}

// Returns, for each part of the addition, the addition without that part.
std::vector<Addition> ShorterOnes(const Addition& addition) {
    std::vector<Addition> shorter;
    for (int axis = 0; axis < kAxisCount; ++axis) {
        if (addition.variant[axis]) shorter.emplace_back(addition).variant[axis].reset();
    }
    for (const auto& [name, value] : addition.settings) {
        shorter.emplace_back(addition).settings.erase(name);
    }
    for (size_t i = 0; i < addition.steps.size(); ++i) {
        Steps& steps = shorter.emplace_back(addition).steps;
        steps.erase(steps.begin() + static_cast<ptrdiff_t>(i));
    }
    return shorter;
}

}  // namespace

DeviceImports ImportsOf(const Survey& survey) {
    DeviceImports imports;
    for (const SurveyedFile& file : survey.files) {
        if (file.source || file.imports.empty()) continue;
        imports[file.path].assign(file.imports.begin(), file.imports.end());
    }
    return imports;
}

Coverage::Coverage(PreparedDevice* device, const BootOptions& options, const Survey& survey,
                   int jobs)
        : device_(device), options_(options), jobs_(jobs), imports_(ImportsOf(survey)) {
    device_->Reset(options);
    space_ = FindVariantSpace(device_->root(), options.time_limit);
    options_.plan.detail = Detail::kNothing;
    options_.plan.traced = nullptr;
    options_.plan.imports = &imports_;
    options_.plan.watched = &watched_;
    for (const auto& [path, imports] : imports_) {
        for (const ImportLine& import : imports) {
            for (const std::string& name : References(import.name)) watched_.insert(name);
        }
    }
    FindUnloadedFiles(survey);
    Boot({{}}, kPhones);
    if (is_stopped_) return;
    expected_ = Expect(boots_.front().delta.changed);
    options_.plan.expected = &expected_;
    WatchDecidingProperties();
    TryValues();
    TryPlaces();
    for (const Steps& before : {Steps(), Steps{"reboot"}}) {
        TrySteps(before);
        TryPlacesWithSteps(before);
    }
    TryPairs();
    TryImports();
    TryShorter();
}

// Fills unloaded_ with the files that a boot might load: those at the library's places and those to
// which an import may lead.
void Coverage::FindUnloadedFiles(const Survey& survey) {
    using Import = std::pair<const SurveyedFile*, const SurveyedImport*>;
    std::map<std::string, std::map<Import, std::set<std::string>>> importers;  // with the names
    std::vector<Import> referring;
    size_t steps = kMostSteps;
    for (const SurveyedFile& file : survey.files) {
        for (const SurveyedImport& import : file.imports) {
            for (const auto& [path, own] : import.targets) {
                importers[own][{&file, &import}].insert(path);
            }
            if (import.refers()) referring.emplace_back(&file, &import);
        }
    }
    for (const SurveyedFile& file : survey.files) {
        if (file.source) continue;
        UnloadedFile unloaded = {file.path, CandidatesFor(file.path, space_), {}};
        auto& known = importers[file.path];
        for (const Import& import : referring) known[import].insert(file.path);
        for (const auto& [import, paths] : known) {
            Importer importer;
            LeadingValues& all = importer.values;
            for (const std::string& path : paths) {
                LeadingValues found =
                        ValuesThatLead(import.second->name, path, kMostChoices, &steps);
                all.choices.insert(all.choices.end(), found.choices.begin(), found.choices.end());
                all.is_complete &= found.is_complete;
            }
            // Choices that name a file of a directory come first.
            std::stable_sort(all.choices.begin(), all.choices.end(),
                             [](const ReferenceValues& a, const ReferenceValues& b) {
                                 return SlashesIn(a) < SlashesIn(b);
                             });
            all.is_complete &= all.choices.size() <= kMostChoices;
            all.choices.resize(std::min(all.choices.size(), kMostChoices));
            if (all.choices.empty() && all.is_complete) continue;
            importer.place = {import.first->path, import.second->line};
            importer.references = References(import.second->name);
            unloaded.importers.push_back(std::move(importer));
        }
        if (!unloaded.candidates.empty() || !unloaded.importers.empty())
            unloaded_.push_back(std::move(unloaded));
    }
}

// Returns the boot's delta as CoveredBoot has it.
PropertyDelta Coverage::DeltaOf(const BootOptions& options, Report* report) const {
    if (options.plan.expected != nullptr) {
        return {std::move(report->properties), std::move(report->removed)};
    }
    static const PropertyMap none;
    return DeltaFrom(boots_.empty() ? none : boots_.front().delta.changed, report->properties);
}

// Boots the device with each addition, and returns the boots with their records.
std::vector<CoveredBoot> Coverage::BootsOf(std::vector<CoveredBoot> boots) {
    ForEachInParallel(
            boots.size(), jobs_,
            [&](size_t number) {
                BootOptions options = options_;
                Report report;
                try {
                    Add(boots[number].addition, &options);
                    // A reboot keeps some of all the properties before it.
                    const auto& steps = options.plan.steps;
                    if (std::any_of(steps.begin(), steps.end(), std::mem_fn(&Step::is_reboot))) {
                        options.plan.expected = nullptr;
                    }
                    device_->Reset(options);
                    report = device_->Boot();
                } catch (const InputError&) {
                    return json();  // a what-if change could not be made
                }
                if (report.failure) return json(report.failure->timed_out || report.failure->limit);
                json answer = json::array({Write(report.record)});
                if (boots[number].is_phone) answer.push_back(Write(DeltaOf(options, &report)));
                return answer;
            },
            [&](size_t number, json answer) {
                if (answer.is_array()) {
                    CoveredBoot& boot = boots[number];
                    Read(answer[0], &boot.record);
                    if (boot.is_phone) Read(answer[1], &boot.delta);
                    boot.survived = true;
                } else {
                    is_stopped_ |= answer == true;
                }
            });
    return boots;
}

// Finds the properties that the library reads, by a boot with every step; if it does not survive
// that, by a boot for each step.
void Coverage::WatchDecidingProperties() {
    std::vector<CoveredBoot> boots = BootsOf({{{{}, {}, KnownSteps()}, {}, {}}});
    if (!boots.front().survived) {
        boots.clear();
        for (const std::string& step : KnownSteps()) boots.push_back({{{}, {}, {step}}, {}, {}});
        boots = BootsOf(std::move(boots));
    }
    for (const CoveredBoot& boot : boots) {
        watched_.insert(boot.record.asked.begin(), boot.record.asked.end());
    }
}

// Boots the device with each addition that was not tried before. Returns whether there was one.
bool Coverage::Boot(const std::vector<Addition>& additions, Kind kind) {
    std::vector<CoveredBoot> boots;
    for (const Addition& addition : additions) {
        auto words = WordsOf(addition, options_.uses_default_steps);
        if (is_stopped_ || !tried_.insert(words).second || FailsWithoutSteps(addition)) continue;
        boots.push_back({addition, std::move(words), {}, kind == kPhones, false});
    }
    if (boots.empty()) return false;
    for (CoveredBoot& boot : BootsOf(std::move(boots))) Record(std::move(boot));
    unloaded_.erase(std::remove_if(unloaded_.begin(), unloaded_.end(),
                                   [&](const UnloadedFile& unloaded) {
                                       const auto known = loads_.find(unloaded.path);
                                       return known != loads_.end() && known->second.count("") != 0;
                                   }),
                    unloaded_.end());
    return true;
}

// Returns whether the library already crashes or hangs before the added steps.
bool Coverage::FailsWithoutSteps(const Addition& addition) const {
    const Addition before = {addition.variant, addition.settings, {}};
    return !addition.steps.empty() && failed_.count(WordsOf(before, false)) != 0;
}

void Coverage::Record(CoveredBoot done) {
    const size_t number = boots_.size();
    boots_.push_back(std::move(done));
    const CoveredBoot& boot = boots_.back();
    if (!boot.survived && boot.addition.steps.empty()) failed_.insert(boot.words);
    for (const RecordedLoad& load : boot.record.loads) {
        if (load.filter.empty()) steps_of_[load.file].insert(load.step);
        const auto& added = boot.addition.steps;
        const bool is_named = load.step.rfind(kOwnStep, 0) == 0 &&
                              std::count(added.begin(), added.end(), load.step) != 0;
        if (!is_named) read_.insert(load.file);
        const auto [best, is_first] = loads_[load.file].emplace(load.filter, number);
        if (!is_first && boot.words.size() < boots_[best->second].words.size()) {
            best->second = number;
        }
    }
    for (const RecordedImport& import : boot.record.imports) {
        auto& contexts = contexts_[{import.file, import.line}];
        if (contexts.size() < kMostContexts) contexts.emplace(import.values, number);
    }
}

std::optional<std::vector<std::string>> Coverage::WordsFor(const std::string& file,
                                                           const std::string& name) const {
    const CoveredBoot* best = nullptr;
    const auto known = loads_.find(file);
    if (known == loads_.end()) return std::nullopt;
    for (const auto& [filter, number] : known->second) {
        const CoveredBoot& boot = boots_[number];
        if (!PassesFilter(name, filter)) continue;
        if (best == nullptr || boot.words.size() < best->words.size()) best = &boot;
    }
    return best == nullptr ? std::nullopt : std::optional(best->words);
}

bool Coverage::IsUnknown(const std::string& file) const {
    const auto fails = [&](const Candidate& candidate) {
        return failed_.count(WordsOf({candidate.variant, candidate.settings, {}}, false)) != 0;
    };
    const auto may_still_lead = [&](const Importer& importer) {
        const bool is_cut = imports_are_cut_ || !importer.values.is_complete;
        return is_cut && contexts_.count(importer.place) != 0;
    };
    // The survey's files are sorted by their paths.
    const auto unloaded = std::lower_bound(
            unloaded_.begin(), unloaded_.end(), file,
            [](const UnloadedFile& one, const std::string& path) { return one.path < path; });
    if (unloaded == unloaded_.end() || unloaded->path != file) return false;
    const auto& [path, candidates, importers] = *unloaded;
    return (places_are_cut_ && !candidates.empty()) ||
           std::any_of(candidates.begin(), candidates.end(), fails) ||
           std::any_of(importers.begin(), importers.end(), may_still_lead);
}

const std::set<std::string>& Coverage::StepsThatLoad(const std::string& file) const {
    static const std::set<std::string> none;
    const auto known = steps_of_.find(file);
    return known == steps_of_.end() ? none : known->second;
}

// Tries each value of each axis by itself.
void Coverage::TryValues() {
    std::vector<Addition> additions;
    for (int axis = 0; axis < kAxisCount; ++axis) {
        for (const std::string& value : space_.values[axis]) {
            additions.emplace_back().variant[axis] = value;
        }
    }
    Boot(additions, kPhones);
}

// Tries the variants to which the places of files belong.
void Coverage::TryPlaces() {
    std::vector<Addition> additions;
    for (const UnloadedFile& unloaded : unloaded_) {
        for (const Candidate& candidate : unloaded.candidates)
            additions.push_back({candidate.variant, candidate.settings, {}});
    }
    Boot(additions, kPhones);
}

// Tries each step by itself, and the step that names the directory of a build.prop.
void Coverage::TrySteps(const Steps& before) {
    if (!HasUnloaded()) return;
    std::vector<Addition> additions;
    for (const std::string& step : KnownSteps()) additions.push_back({{}, {}, before + step});
    for (const UnloadedFile& unloaded : unloaded_) {
        if (android::base::Basename(unloaded.path) != kBuildProp) continue;
        additions.push_back({{}, {}, before + (kOwnStep + android::base::Dirname(unloaded.path))});
    }
    Boot(additions);
}

// Tries the variants to which the places belong with each step, the likeliest first.
void Coverage::TryPlacesWithSteps(const Steps& before) {
    for (size_t i = 0; HasUnloaded() && i < KnownSteps().size(); ++i) {
        if (boots_.size() >= kMostBoots) {
            places_are_cut_ = true;
            return;
        }
        std::vector<Addition> additions;
        for (const UnloadedFile& unloaded : unloaded_) {
            for (const Candidate& candidate : unloaded.candidates) {
                Steps steps = candidate.steps;
                for (const std::string& step : KnownSteps()) {
                    if (std::count(steps.begin(), steps.end(), step) == 0) steps.push_back(step);
                }
                additions.push_back({candidate.variant, candidate.settings, before + steps[i]});
            }
        }
        Boot(additions);
    }
}

// Returns the values of axes on which something depends; one of several with the same effect.
std::vector<Variant> Coverage::Representatives() const {
    std::vector<Variant> representatives;
    std::set<std::pair<int, std::map<std::string, std::set<std::string>>>> known;
    for (const CoveredBoot& boot : boots_) {
        const Addition& addition = boot.addition;
        if (AxesOf(addition.variant) != 1 || boot.words.size() != 2) continue;
        int axis = 0;
        while (!addition.variant[axis]) ++axis;
        auto given = boot.record.given;
        if (axis >= kFirstKeyAxis) given.erase(KeyOf(axis).property);
        if (axis < kFirstKeyAxis && given == boots_.front().record.given) continue;
        if (known.insert({axis, given}).second) representatives.push_back(addition.variant);
    }
    return representatives;
}

// Tries two axes together where the values of one change properties that the library reads.
void Coverage::TryPairs() {
    if (!HasUnloaded()) return;
    const std::vector<Variant> representatives = Representatives();
    std::set<Variant> named(representatives.begin(), representatives.end());
    for (const UnloadedFile& unloaded : unloaded_) {
        for (const Candidate& candidate : unloaded.candidates) {
            if (AxesOf(candidate.variant) == 1) named.insert(candidate.variant);
        }
    }
    std::vector<Addition> additions;
    for (const Variant& one : named) {
        for (const Variant& other : representatives) {
            Variant both = one;
            if (Merge(other, &both) && AxesOf(both) == 2) additions.push_back({both, {}, {}});
        }
    }
    Boot(additions, kPhones);
}

// Returns additions with which the import may lead to the file, based on boots that load the
// import's line.
std::vector<Addition> Coverage::AdditionsFor(const Importer& importer) const {
    std::vector<Addition> additions;
    const auto contexts = contexts_.find(importer.place);
    if (contexts == contexts_.end()) return additions;
    for (const ReferenceValues& choice : importer.values.choices) {
        for (const auto& [values, number] : contexts->second) {
            Addition addition = boots_[number].addition;
            bool is_possible = true;
            for (size_t i = 0; i < importer.references.size(); ++i) {
                const auto& [name, value] = *choice.find(importer.references[i]);
                if (values[i] == value) continue;
                is_possible &= !WhyRefused(name, value);
                addition.settings[name] = value;
            }
            if (!is_possible) continue;
            additions.push_back(addition);
            for (const std::string& step : StepsThatLoad(importer.place.first)) {
                additions.push_back({addition.variant, addition.settings, addition.steps + step});
            }
        }
    }
    std::stable_sort(additions.begin(), additions.end(), [](const Addition& a, const Addition& b) {
        return a.settings.size() + a.steps.size() < b.settings.size() + b.steps.size();
    });
    return additions;
}

// Tries what loads a file with one axis, setting or step less, until nothing shorter loads it.
void Coverage::TryShorter() {
    for (bool goes_on = true; goes_on && !is_stopped_ && boots_.size() < kMostBoots;) {
        std::vector<Addition> additions;
        for (const auto& [file, by_filter] : loads_) {
            for (const auto& [filter, number] : by_filter) {
                for (Addition& shorter : ShorterOnes(boots_[number].addition)) {
                    additions.push_back(std::move(shorter));
                }
            }
        }
        goes_on = Boot(additions);
    }
}

// Tries values of references with which loaded imports lead to unloaded files: for each file
// the first that was not tried, until none is left.
void Coverage::TryImports() {
    bool goes_on = true;
    while (goes_on && HasUnloaded()) {
        if (boots_.size() >= kMostBoots) {
            imports_are_cut_ = true;
            return;
        }
        std::vector<Addition> next;
        for (const UnloadedFile& unloaded : unloaded_) {
            for (const Importer& importer : unloaded.importers) {
                for (Addition& addition : AdditionsFor(importer)) {
                    if (tried_.count(WordsOf(addition, options_.uses_default_steps)) != 0) continue;
                    next.push_back(std::move(addition));
                    break;
                }
            }
        }
        goes_on = Boot(next);
    }
}

}  // namespace extprop
