// Which values properties have in which variants.

#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "matrix/matrix.h"

namespace extprop {

struct SummaryValue {
    std::optional<std::string> value;  // none: the property is unset
    std::vector<size_t> variants;      // in the summary's list, ascending
    OriginDocument origin;             // in the first of these variants
};

struct SummaryProperty {
    std::string name;
    std::vector<SummaryValue> values;  // the most common one last
};

struct SummaryVariant {
    Variant variant;
    std::vector<std::string> words;  // of its boot
    std::optional<BootFailure> failure;
};

// One of the parts that the variants were divided into.
struct Shard {
    size_t number = 1;
    size_t count = 1;
};

struct Summary {
    std::string device;
    std::vector<SummaryVariant> variants;  // in VariantOrder
    std::vector<SummaryProperty> properties;
    std::vector<DeadPlace> dead;  // looked for in a summary of all properties
    // Of a part: which one, and the properties that have one value in all of its variants, each
    // with the first of these; others may tell of another value elsewhere.
    std::optional<Shard> shard;
    std::vector<SummaryProperty> same;
};

// Collects outcomes, in any order, in memory that grows with what is different in them only.
class Collector {
  public:
    // The properties that outcomes are told against.
    explicit Collector(PropertyMap base) : base_(std::move(base)) {}

    // Throws InputError if the outcomes differ in more than the limits allow.
    void Add(const Variant& variant, Outcome outcome);

    // Returns the summary of the properties whose names match one of the patterns; without one, of
    // those that are not the same everywhere. Variants that failed have no values.
    Summary Summarize(const std::vector<std::string>& patterns) const;

    // Returns the properties that have one value in all variants of this summary, each with the
    // first of these.
    std::vector<SummaryProperty> SameEverywhere(const Summary& summary) const;

  private:
    struct Added {
        Variant variant;
        std::optional<BootFailure> failure;
    };

    void AddOther(const std::string& name, std::optional<std::string> value, size_t variant);

    size_t size_ = 0;  // of what is kept, about, in bytes
    PropertyMap base_;
    std::vector<Added> added_;
    // By name and value, the variants that were added with it; none for unset.
    std::map<std::string, std::map<std::optional<std::string>, std::vector<size_t>>> others_;
};

// Returns one request for each variant that some value's origin is taken from.
std::vector<TraceRequest> OriginsToFind(const Summary& summary, std::vector<size_t>* variants);

// Tells which variants of a summary there are, in few words.
class VariantsNamer {
  public:
    explicit VariantsNamer(const std::vector<SummaryVariant>& all);

    // Returns a short text for the variants, numbers in the list: by a value of one axis where all
    // variants with it are among them.
    std::string Text(const std::vector<size_t>& variants) const;

  private:
    struct Group {
        std::string text;
        std::vector<size_t> variants;
    };

    const std::vector<SummaryVariant>& all_;
    std::vector<Group> groups_;
};

// Returns the value of the property in each variant; none where it failed or is unset.
std::vector<std::optional<std::string>> ValuesByVariant(const SummaryProperty& property,
                                                        size_t variants);

}  // namespace extprop
