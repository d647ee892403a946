#include "matrix/matrix.h"

#include "explain/explain.h"
#include "matrix/workers.h"
#include "output/json.h"

namespace extprop {

namespace {

// Returns the switch key that the variant has and the outcome has not, if there is one.
std::optional<int> LostKey(const Variant& variant, const PropertyMap& properties) {
    for (int axis = kFirstKeyAxis; axis < kAxisCount; ++axis) {
        if (!variant[axis]) continue;
        auto key = properties.find(SwitchKeys()[axis - kFirstKeyAxis].property);
        if (key == properties.end() || key->second != *variant[axis]) return axis;
    }
    return std::nullopt;
}

}  // namespace

Matrix::Matrix(const BootOptions& options, int jobs)
        : options_(options),
          jobs_(jobs),
          device_(options),
          space_(FindVariantSpace(device_.root(), options.time_limit)),
          base_(BootWith({})) {}

BootOptions Matrix::OptionsWith(const Words& words, Detail detail) const {
    BootOptions options = options_;
    options.plan.detail = detail;
    AddWords(words, &options);
    return options;
}

// Boots in silence; a boot that fails is repeated for what can be told of it.
Report Matrix::BootWith(const Words& words) {
    device_.Reset(OptionsWith(words, Detail::kNothing));
    Report report = device_.Boot();
    if (report.failure) {
        device_.Reset(OptionsWith(words, Detail::kEverything));
        report = device_.Boot();
    }
    return report;
}

Outcome Matrix::BootVariant(const Variant& variant) {
    Outcome outcome;
    outcome.words = WordsFor(variant, space_, options_);
    Report report = BootWith(outcome.words);
    // A boot may delete key files before it reads them. The key is in force all the same if what
    // init does when it changes is done behind the rest.
    const auto lost = LostKey(variant, report.properties);
    if (lost && options_.names_no_steps && !report.failure) {
        const Words late = outcome.words + LateWordsFor(*lost, *variant[*lost]);
        Report again = BootWith(late);
        if (!again.failure && LostKey(variant, again.properties) != lost) {
            outcome.words = late;
            report = std::move(again);
        }
    }
    outcome.failure = report.failure;
    for (const auto& [name, value] : report.properties) {
        auto old = base_.properties.find(name);
        if (old == base_.properties.end() || old->second != value) {
            outcome.changed.emplace_hint(outcome.changed.end(), name, value);
        }
    }
    for (const auto& [name, value] : base_.properties) {
        if (report.properties.count(name) == 0) outcome.removed.push_back(name);
    }
    return outcome;
}

std::vector<DeadPlace> Matrix::FindDeadPlaces() {
    device_.Reset(options_);  // what the boot of the device as it is has written is not its own
    return DeadPlacesOf(device_.root(), options_.time_limit);
}

void Matrix::Boot(const std::vector<Variant>& variants,
                  const std::function<void(size_t, Outcome)>& done) {
    ForEachInParallel(
            variants.size(), jobs_,
            [&](size_t number) { return ToJson(BootVariant(variants[number])); },
            [&](size_t number, const json& outcome) { done(number, OutcomeFromJson(outcome)); });
}

void Matrix::Trace(const std::vector<TraceRequest>& requests,
                   const std::function<void(size_t, const json&)>& done) {
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
    ForEachInParallel(requests.size(), jobs_, trace, done);
}

}  // namespace extprop
