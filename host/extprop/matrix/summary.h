// Summarizes which values properties have in which variants.

#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "matrix/matrix.h"

namespace extprop {

struct SummaryValue {
    std::optional<std::string> value;  // none: the property is unset
    std::vector<size_t> variants;      // indices in Summary::variants, ascending
    OriginDocument origin;             // in the first of these variants; null if not yet known
};

struct SummaryProperty {
    std::string name;
    std::vector<SummaryValue> values;  // the most common one last
};

struct SummaryVariant {
    Variant variant;
    std::vector<std::string> words;  // of the boot's command line
    std::optional<BootFailure> failure;
};

// One of the parts into which the variants were divided.
struct Shard {
    size_t number = 1;  // from 1 to count
    size_t count = 1;
};

struct Summary {
    std::string device;
    std::vector<SummaryVariant> variants;  // in VariantOrder
    std::vector<SummaryProperty> properties;
    std::vector<DeadPlace> dead;  // only of a summary without patterns
    // Of a part of the variants: which part, and the properties that have one value in all of its
    // variants, each with the first variant. In another part they may have another value.
    std::optional<Shard> shard;
    std::vector<SummaryProperty> same;
};

// Collects outcomes, in any order. Memory grows only with the differences between them.
class Collector {
  public:
    // `base` are the properties from which outcomes are differences.
    explicit Collector(PropertyMap base) : base_(std::move(base)) {}

    // Adds an outcome; each variant may be added once. Throws InputError if what the outcomes
    // differ in takes more than limits::kSummary.
    void Add(const Variant& variant, Outcome outcome);

    // Returns the summary of the properties whose names match one of the patterns; without
    // patterns, of those whose value differs between variants. Properties that are unset in all
    // variants are left out. Variants that failed are listed, but have no values. Origins and all
    // that is not about the outcomes are left empty.
    Summary Summarize(const std::vector<std::string>& patterns) const;

    // Returns the properties that have one value in all variants of this summary, which Summarize()
    // made of all outcomes so far, each with the first variant. Variants that failed do not count;
    // if all failed, there are none.
    std::vector<SummaryProperty> SameEverywhere(const Summary& summary) const;

  private:
    struct Added {
        Variant variant;
        std::optional<BootFailure> failure;
    };

    void AddOther(const std::string& name, std::optional<std::string> value, size_t variant);

    size_t size_ = 0;  // memory used, roughly, in bytes
    PropertyMap base_;
    std::vector<Added> added_;
    // By name and value (nothing for unset), the variants that have this value in place of the
    // base's.
    std::map<std::string, std::map<std::optional<std::string>, std::vector<size_t>>> others_;
};

// Returns one request for each variant from which some value's origin is taken. Adds the variant's
// index in the summary to `*variants`, in the order of the requests.
std::vector<TraceRequest> OriginsToFind(const Summary& summary, std::vector<size_t>* variants);

// Names variants of a summary in few words.
class VariantsNamer {
  public:
    // `all` must outlive this.
    explicit VariantsNamer(const std::vector<SummaryVariant>& all);

    // Returns a short text for the variants, given by their indices in `all`. If all variants with
    // a value of an axis that did not fail are among them, the text names that value. Lists six
    // such names at most and counts the others. The text is not made printable.
    std::string Text(const std::vector<size_t>& variants) const;

  private:
    struct Group {
        std::string text;
        std::vector<size_t> variants;
    };

    const std::vector<SummaryVariant>& all_;
    std::vector<Group> groups_;
};

// Returns the property's value in each variant of its summary, of which there are `variants`;
// nothing where the boot failed or the property is unset.
std::vector<std::optional<std::string>> ValuesByVariant(const SummaryProperty& property,
                                                        size_t variants);

}  // namespace extprop
