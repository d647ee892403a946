#include "commands/matrix_options.h"

#include <stdint.h>

#include <chrono>

#include <android-base/strings.h>

#include "coverage/workers.h"
#include "input_error.h"
#include "output/standard_error.h"

namespace extprop {

namespace {

// Shows on a terminal how much of the work is done.
class Progress {
  public:
    explicit Progress(size_t total) : total_(static_cast<int64_t>(total)) {}

    void Advance() {
        using namespace std::chrono;
        ++done_;
        const auto now = steady_clock::now();
        if (!StatusLine::IsSeen() || now - last_ < milliseconds(100)) return;
        last_ = now;
        const auto left = (now - start_) / done_ * (total_ - done_);
        line_.Show(std::to_string(done_) + " of " + std::to_string(total_) + " variants, about " +
                   std::to_string(duration_cast<seconds>(left).count() + 1) + " s left");
    }

  private:
    const int64_t total_;
    int64_t done_ = 0;
    StatusLine line_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point last_ = start_;
};

using Values = std::array<std::set<std::string>, kAxisCount>;

// Parses text such as "region=EU,IN".
void ParseValues(const char* option, const std::vector<std::string>& words,
                 const VariantSpace& known, Values* values) {
    for (const std::string& word : words) {
        const size_t equals = word.find('=');
        if (equals == std::string::npos) {
            throw InputError(std::string(option) + " '" + word + "': expected AXIS=VALUE,VALUE...");
        }
        const int axis = AxisNamed(word.substr(0, equals));
        for (const std::string& value : android::base::Split(word.substr(equals + 1), ",")) {
            if (value != kAsItIs && known.values[axis].count(value) == 0) {
                throw InputError(std::string(option) + " '" + word +
                                 "': " + NoValueText(axis, value) + "; --list prints its values");
            }
            (*values)[axis].insert(value);
        }
    }
}

}  // namespace

void AddJobsOption(CommandLine* line, int* jobs) {
    *jobs = ProcessorCount();
    line->AddNumber("--jobs", "N", 1, 1024, jobs, "Boot as many variants at once as N");
}

void AddChoiceOptions(CommandLine* line, ChoiceArguments* arguments) {
    line->AddListOption("--over", "AXIS,AXIS...", &arguments->over,
                        "Boot every combination of these axes' values instead of each axis by "
                        "itself. The axes are brand, region, nv (the old nv key), sim-first, "
                        "sim-current, channel and region-key");
    line->AddOption("--only", "AXIS=VALUE,...", &arguments->only,
                    "Boot only the variants with one of these values; as-is is the device's own");
    line->AddOption("--except", "AXIS=VALUE,...", &arguments->except,
                    "Boot only the variants with none of these values");
    AddJobsOption(line, &arguments->jobs);
}

std::vector<Variant> Chosen(const VariantSpace& space, const ChoiceArguments& arguments,
                            const VariantSpace& known) {
    VariantChoice choice;
    for (const std::string& axis : arguments.over) choice.over.push_back(AxisNamed(axis));
    ParseValues("--only", arguments.only, known, &choice.only);
    ParseValues("--except", arguments.except, known, &choice.except);
    return ChosenVariants(space, choice);
}

void CheckSomeAreLeft(size_t variants, const ChoiceArguments& arguments) {
    if (variants != 0) return;
    throw InputError("no variant is left to boot" +
                     std::string(arguments.over.empty()
                                         ? "; each axis is varied by itself, --over AXIS,AXIS "
                                           "takes their combinations"
                                         : ""));
}

void BootWithProgress(Matrix* matrix, const std::vector<Variant>& variants,
                      const std::function<void(size_t, Outcome)>& done) {
    Progress progress(variants.size());
    matrix->Boot(variants, [&](size_t number, Outcome outcome) {
        done(number, std::move(outcome));
        progress.Advance();
    });
}

Collector Collect(Matrix* matrix, const std::vector<Variant>& variants,
                  const std::function<void(const Variant&, const Outcome&)>& on_outcome) {
    Collector collector(matrix->base().properties);
    BootWithProgress(matrix, variants, [&](size_t number, Outcome outcome) {
        if (on_outcome) on_outcome(variants[number], outcome);
        collector.Add(variants[number], std::move(outcome));
    });
    return collector;
}

void FindOrigins(Matrix* matrix, Summary* summary) {
    std::vector<size_t> variants;
    const std::vector<TraceRequest> requests = OriginsToFind(*summary, &variants);
    std::map<size_t, std::map<std::string, OriginDocument>> origins;  // by the variant
    Progress progress(requests.size());
    matrix->Trace(requests, [&](size_t number, std::map<std::string, OriginDocument> found) {
        origins[variants[number]] = std::move(found);
        progress.Advance();
    });
    for (auto* properties : {&summary->properties, &summary->same}) {
        for (SummaryProperty& property : *properties) {
            for (SummaryValue& value : property.values) {
                if (value.value) {
                    value.origin = origins[value.variants.front()][property.name];
                }
            }
        }
    }
}

}  // namespace extprop
