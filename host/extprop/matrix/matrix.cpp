#include "matrix/matrix.h"

#include <algorithm>
#include <chrono>
#include <functional>

#include <android-base/strings.h>
#include <nlohmann/json.hpp>

#include "explain/explain.h"
#include "matrix/workers.h"
#include "output/json.h"

namespace extprop {

namespace {

Outcome Against(const PropertyMap& base, Report report) {
    return {DeltaFrom(base, report.properties), {}, std::move(report.failure)};
}

}  // namespace

Matrix::Matrix(const BootOptions& options, int jobs)
        : options_(options),
          jobs_(jobs),
          device_(options),
          space_(FindVariantSpace(device_.root(), options.time_limit)),
          base_(BootAlone({})) {}

BootOptions Matrix::OptionsWith(const Words& words, Detail detail) const {
    BootOptions options = options_;
    options.plan.detail = detail;
    AddWords(words, &options);
    return options;
}

// Boots in silence. A boot that fails is repeated for what can be told of it.
Report Matrix::BootAlone(const Words& words) {
    device_.Reset(OptionsWith(words, Detail::kNothing));
    Report report = device_.Boot();
    if (report.failure) {
        device_.Reset(OptionsWith(words, Detail::kEverything));
        report = device_.Boot();
    }
    return report;
}

Outcome Matrix::BootAgainstBase(const Words& words) {
    BootOptions options = OptionsWith(words, Detail::kNothing);
    const auto& steps = options.plan.steps;
    Outcome outcome;
    if (std::any_of(steps.begin(), steps.end(), std::mem_fn(&Step::is_reboot))) {
        // The properties in between count, too.
        outcome = Against(base_.properties, BootAlone(words));
    } else {
        options.plan.base = &base_.properties;
        device_.Reset(options);
        Report report = device_.Boot();
        if (report.failure) {
            outcome = Against(base_.properties, BootAlone(words));
        } else {
            outcome = {{std::move(report.properties), std::move(report.removed)}, {}, {}};
        }
    }
    outcome.words = words;
    return outcome;
}

// Returns the switch key that the variant has and the outcome has not, if there is one.
std::optional<int> Matrix::LostKey(const Variant& variant, const Outcome& outcome) const {
    for (int axis = kFirstKeyAxis; axis < kAxisCount; ++axis) {
        if (!variant[axis]) continue;
        const char* property = SwitchKeys()[axis - kFirstKeyAxis].property;
        auto changed = outcome.changed.find(property);
        auto kept = base_.properties.find(property);
        const bool is_changed = changed != outcome.changed.end();
        const bool is_kept =
                kept != base_.properties.end() &&
                std::count(outcome.removed.begin(), outcome.removed.end(), property) == 0;
        if (!is_changed && !is_kept) return axis;
        if ((is_changed ? changed : kept)->second != *variant[axis]) return axis;
    }
    return std::nullopt;
}

Outcome Matrix::BootVariant(const Variant& variant) {
    Outcome outcome = BootAgainstBase(WordsFor(variant, space_, options_));
    // A boot may delete key files before it reads them. The key is in force all the same if what
    // init does when it changes is done behind the rest.
    const auto lost = LostKey(variant, outcome);
    if (!lost || !options_.names_no_steps || outcome.failure) return outcome;
    Outcome again = BootAgainstBase(outcome.words + LateWordsFor(*lost, *variant[*lost]));
    return again.failure || LostKey(variant, again) == lost ? outcome : again;
}

std::vector<DeadPlace> Matrix::FindDeadPlaces() {
    device_.Reset(options_);  // what the boot of the device as it is has written is not its own
    const auto survey = SurveyForDeadPlaces(device_.root(), options_.time_limit);
    if (!survey) return {};
    std::vector<DeadPlace> places = DeadPlaces(*survey, MomentsOf(*survey));

    // The given steps may read what others do not.
    std::vector<std::string> loaded;
    for (const StepReport& step : device_.Boot().steps) {
        for (const Event& event : step.events) {
            const auto* load = std::get_if<LoadEvent>(&event);
            if (load != nullptr) loaded.push_back(load->source.value_or(load->path));
        }
    }
    const auto is_read = [&](const DeadPlace& place) {
        return std::any_of(loaded.begin(), loaded.end(), [&](const std::string& path) {
            return path == place.path || android::base::StartsWith(path, place.path + "/");
        });
    };
    places.erase(std::remove_if(places.begin(), places.end(), is_read), places.end());
    return places;
}

void Matrix::Boot(const std::vector<Variant>& variants,
                  const std::function<void(size_t, Outcome)>& done) {
    ForEachInParallel(
            variants.size(), jobs_,
            [&](size_t number) {
                const auto start = std::chrono::steady_clock::now();
                Outcome outcome = BootVariant(variants[number]);
                const auto duration = std::chrono::steady_clock::now() - start;
                outcome.seconds = std::chrono::duration<double>(duration).count();
                return ToJson(outcome);
            },
            [&](size_t number, const json& outcome) { done(number, OutcomeFromJson(outcome)); });
}

void Matrix::Trace(const std::vector<TraceRequest>& requests,
                   const std::function<void(size_t, std::map<std::string, OriginDocument>)>& done) {
    const auto trace = [&](size_t number) {
        const TraceRequest& request = requests[number];
        device_.Reset(OptionsWith(request.words, Detail::kOrigins));
        Tracer tracer;
        device_.Boot(&tracer,
                     [&](const std::string& name) { return request.names.count(name) != 0; });
        json origins = json::object();
        for (const std::string& name : request.names) {
            if (const Origin* origin = tracer.Winner(name)) {
                origins[name] = ToJson(*origin);
                origins[name]["text"] = OriginText(*origin);
            }
        }
        return origins;
    };
    ForEachInParallel(requests.size(), jobs_, trace, [&](size_t number, json found) {
        std::map<std::string, OriginDocument> origins;
        for (auto& [name, origin] : found.items()) {
            origins[name] = std::make_shared<json>(std::move(origin));
        }
        done(number, std::move(origins));
    });
}

}  // namespace extprop
