#include "matrix/matrix.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "budget.h"
#include "coverage/coverage.h"
#include "coverage/idle.h"
#include "coverage/workers.h"
#include "explain/origin_fields.h"
#include "matrix/summary_fields.h"

namespace extprop {

namespace {

Outcome Against(const PropertyMap& base, Report report) {
    return {DeltaFrom(base, report.properties), std::move(report.failure)};
}

}  // namespace

Matrix::Matrix(const BootOptions& options, int jobs)
        : options_(options),
          jobs_(jobs),
          device_(options),
          space_(FindVariantSpace(device_.root(), options.time_limit)),
          base_(BootAlone({})),
          expected_(Expect(base_.properties)) {
    NoteIdleWhatIfs(&device_, options_, &base_);
}

BootOptions Matrix::OptionsFor(const Variant& variant, Detail detail) const {
    BootOptions options = options_;
    options.plan.detail = detail;
    Add({variant, {}, {}}, &options);
    return options;
}

// Makes the boot report its properties as the difference from the base, unless it has reboots, for
// which all properties before each are needed.
void Matrix::ExpectBase(BootOptions* options) const {
    const auto& steps = options->plan.steps;
    if (std::none_of(steps.begin(), steps.end(), std::mem_fn(&Step::is_reboot))) {
        options->plan.expected = &expected_;
    }
}

// Boots without events. A boot that fails is repeated with events, for the report.
Report Matrix::BootAlone(const Variant& variant) {
    device_.Reset(OptionsFor(variant, Detail::kNothing));
    Report report = device_.Boot();
    if (report.failure) {
        device_.Reset(OptionsFor(variant, Detail::kEverything));
        report = device_.Boot();
    }
    return report;
}

Outcome Matrix::BootVariant(const Variant& variant) {
    BootOptions options = OptionsFor(variant, Detail::kNothing);
    ExpectBase(&options);
    if (options.plan.expected == nullptr) return Against(base_.properties, BootAlone(variant));
    device_.Reset(options);
    Report report = device_.Boot();
    if (report.failure) return Against(base_.properties, BootAlone(variant));
    return {{std::move(report.properties), std::move(report.removed)}, {}};
}

std::optional<std::vector<DeadPlace>> Matrix::FindDeadPlaces() {
    device_.Reset(options_);  // discards what the boot of the device as it is has written
    const Survey survey = SurveyForDeadPlaces(device_.root(), options_.time_limit);
    const Coverage coverage(&device_, options_, survey, jobs_);
    for (const CoveredBoot& boot : coverage.boots()) {
        const Addition& addition = boot.addition;
        if (!boot.survived || !boot.is_phone || !addition.settings.empty()) continue;
        // The first boot's delta, of the device as it is, is that from no properties.
        known_[addition.variant] = addition.variant == Variant() ? PropertyDelta() : boot.delta;
    }
    if (coverage.is_stopped()) return std::nullopt;
    return DeadPlaces(survey, coverage);
}

void Matrix::Boot(const std::vector<Variant>& variants,
                  const std::function<void(size_t, Outcome)>& done) {
    std::vector<size_t> unknown;
    for (size_t i = 0; i < variants.size(); ++i) {
        const auto known = known_.find(variants[i]);
        if (known == known_.end()) {
            unknown.push_back(i);
        } else {
            done(i, {known->second, {}});
        }
    }
    size_t stopped = 0;  // each took long
    ForEachInParallel(
            unknown.size(), jobs_,
            [&](size_t i) {
                const auto start = std::chrono::steady_clock::now();
                Outcome outcome = BootVariant(variants[unknown[i]]);
                const auto duration = std::chrono::steady_clock::now() - start;
                outcome.seconds = std::chrono::duration<double>(duration).count();
                return Write(outcome);
            },
            [&](size_t i, json document) {
                const size_t number = unknown[i];
                auto outcome = FromJson<Outcome>(std::move(document));
                const std::optional<BootFailure> failure = outcome.failure;
                done(number, std::move(outcome));
                if (!failure || !(failure->timed_out || failure->limit)) return;
                if (++stopped <= limits::kStopped) return;
                throw std::runtime_error("more than " + std::to_string(limits::kStopped) +
                                         " variants hung or met a limit, such as " +
                                         VariantText(variants[number]) + ", last loading " +
                                         failure->last_file.value_or("nothing"));
            });
}

void Matrix::Trace(const std::vector<TraceRequest>& requests,
                   const std::function<void(size_t, std::map<std::string, OriginDocument>)>& done) {
    const auto trace = [&](size_t number) {
        const TraceRequest& request = requests[number];
        BootOptions options = OptionsFor(request.variant, Detail::kOrigins);
        ExpectBase(&options);
        device_.Reset(options);
        Tracer tracer;
        device_.Boot(&tracer,
                     [&](const std::string& name) { return request.names.count(name) != 0; });
        json origins = json::object();
        for (const std::string& name : request.names) {
            if (const Origin* origin = tracer.Winner(name)) {
                origins[name] = Write(*origin);
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
