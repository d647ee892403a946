// Boots the variants of one device in parallel.

#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "boot/property_delta.h"
#include "coverage/dead_places.h"
#include "explain/origins.h"
#include "matrix/variants.h"

namespace extprop {

// The result of a variant's boot, as the difference from the boot of the device as it is.
struct Outcome : PropertyDelta {
    std::optional<BootFailure> failure;  // then the properties are those before it
    double seconds = 0;                  // duration of the boot; 0 if FindDeadPlaces() made it
};

// Requests the origins of these properties in the boot of this variant.
struct TraceRequest {
    Variant variant;
    std::set<std::string> names;
};

// A value's origin: its JSON document, with OriginText() in the field "text"; null if it is not
// known. One that was read from a file is untrusted and may have any form.
using OriginDocument = std::shared_ptr<const nlohmann::json>;

// Boots run in child processes. A boot in which the library fails is a result, not an error. The
// functions throw as ForEachInParallel() does and pass on what `done` throws; boots that still run
// are killed then.
class Matrix {
  public:
    // Prepares the device and boots it as it is. Up to `jobs` boots, at least 1, run at a time.
    // Throws as PreparedDevice and FindVariantSpace do.
    Matrix(const BootOptions& options, int jobs);

    const VariantSpace& space() const { return space_; }
    const std::string& device() const { return base_.device; }
    const sandbox::Sandbox& root() const { return device_.root(); }

    // Returns the report on the device as it is; it has a failure if the library failed.
    const Report& base() const { return base_; }

    // Boots each variant that FindDeadPlaces() has not booted. Calls `done` with its index and
    // outcome once it has finished, in any order. Also throws std::runtime_error if more than
    // limits::kStopped variants hung or met a limit, since all would take too long.
    void Boot(const std::vector<Variant>& variants,
              const std::function<void(size_t, Outcome)>& done);

    // Boots once for each request. Calls `done` with its index and the origins, by name, of those
    // of the properties that have a value at the end, or before a failure.
    void Trace(const std::vector<TraceRequest>& requests,
               const std::function<void(size_t, std::map<std::string, OriginDocument>)>& done);

    // Boots as Coverage does, and returns what no variant and no step reads; nothing if that is
    // unknown because Coverage::is_stopped(). Keeps the outcomes of variants for Boot(). Also
    // throws as TakeSurvey and Coverage do.
    std::optional<std::vector<DeadPlace>> FindDeadPlaces();

  private:
    BootOptions OptionsFor(const Variant& variant, Detail detail) const;
    void ExpectBase(BootOptions* options) const;
    Report BootAlone(const Variant& variant);
    Outcome BootVariant(const Variant& variant);

    BootOptions options_;
    int jobs_;
    PreparedDevice device_;
    VariantSpace space_;
    Report base_;
    platform::ExpectedProperties expected_;   // the properties of base_
    std::map<Variant, PropertyDelta> known_;  // outcomes of FindDeadPlaces()'s boots
};

}  // namespace extprop
