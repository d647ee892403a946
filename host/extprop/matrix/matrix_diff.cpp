#include "matrix/matrix_diff.h"

#include <map>

namespace extprop {

namespace {

using VariantIndices = std::map<Variant, size_t, VariantOrder>;

VariantIndices IndicesOf(const Summary& summary) {
    VariantIndices indices;
    for (size_t i = 0; i < summary.variants.size(); ++i) indices[summary.variants[i].variant] = i;
    return indices;
}

// Returns the summary's variants that the other does not have, and adds those of them that failed
// to `*failed`.
std::vector<Variant> Only(const Summary& summary, const VariantIndices& other,
                          std::vector<SummaryVariant>* failed) {
    std::vector<Variant> only;
    for (const SummaryVariant& variant : summary.variants) {
        if (other.count(variant.variant) != 0) continue;
        only.push_back(variant.variant);
        if (variant.failure) failed->push_back(variant);
    }
    return only;
}

std::map<std::string, const SummaryProperty*> ByName(const Summary& summary) {
    std::map<std::string, const SummaryProperty*> properties;
    for (const SummaryProperty& property : summary.properties) {
        properties[property.name] = &property;
    }
    return properties;
}

std::vector<std::optional<std::string>> Values(
        const std::map<std::string, const SummaryProperty*>& properties, const std::string& name,
        size_t variants) {
    auto property = properties.find(name);
    if (property == properties.end()) return std::vector<std::optional<std::string>>(variants);
    return ValuesByVariant(*property->second, variants);
}

}  // namespace

MatrixDifference Compare(const Summary& a, const Summary& b) {
    MatrixDifference difference;
    difference.device_a = a.device;
    difference.device_b = b.device;
    const VariantIndices places_a = IndicesOf(a), places_b = IndicesOf(b);
    difference.only_a = Only(a, places_b, &difference.failed);
    difference.only_b = Only(b, places_a, &difference.failed);
    std::vector<std::pair<size_t, size_t>> common;
    for (const auto& [variant, place_a] : places_a) {
        auto place_b = places_b.find(variant);
        if (place_b == places_b.end()) continue;
        const SummaryVariant& of_a = a.variants[place_a];
        const SummaryVariant& of_b = b.variants[place_b->second];
        if (of_a.failure || of_b.failure) {
            difference.failed.push_back(of_a.failure ? of_a : of_b);
            continue;
        }
        common.emplace_back(place_a, place_b->second);
        difference.variants.push_back(of_a);
    }

    const auto properties_a = ByName(a), properties_b = ByName(b);
    auto names = properties_a;
    names.insert(properties_b.begin(), properties_b.end());
    for (const auto& [name, property] : names) {
        const auto values_a = Values(properties_a, name, a.variants.size());
        const auto values_b = Values(properties_b, name, b.variants.size());
        std::map<std::pair<std::optional<std::string>, std::optional<std::string>>,
                 std::vector<size_t>>
                groups;
        for (size_t i = 0; i < common.size(); ++i) {
            const auto& old = values_a[common[i].first];
            const auto& now = values_b[common[i].second];
            if (old != now) groups[{old, now}].push_back(i);
        }
        for (auto& [values, variants] : groups) {
            difference.changes.push_back({name, values.first, values.second, std::move(variants)});
        }
    }
    return difference;
}

}  // namespace extprop
