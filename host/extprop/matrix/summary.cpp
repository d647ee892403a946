#include "matrix/summary.h"

#include <algorithm>
#include <numeric>
#include <set>

#include <android-base/strings.h>

#include "budget.h"
#include "explain/explain.h"
#include "input_error.h"
#include "printable.h"

namespace extprop {

void Collector::Add(const Variant& variant, Outcome outcome) {
    const size_t number = added_.size();
    if (!outcome.failure) {
        for (auto& [name, value] : outcome.changed) AddOther(name, std::move(value), number);
        for (const std::string& name : outcome.removed) AddOther(name, std::nullopt, number);
    }
    for (const auto& value : variant) {
        if (value) size_ += 2 * (sizeof(std::string) + value->size());  // and its word
    }
    if (size_ > limits::kSummary) {
        throw InputError("the variants differ in more than " + std::to_string(limits::kSummary) +
                         " bytes; --only, --except and --shard leave fewer");
    }
    added_.push_back({variant, std::move(outcome.failure)});
}

void Collector::AddOther(const std::string& name, std::optional<std::string> value,
                         size_t variant) {
    constexpr size_t kNodes = 256;  // of a new name and value besides their texts, roughly
    const size_t size = name.size() + (value ? value->size() : 0);
    std::vector<size_t>& variants = others_[name][std::move(value)];
    if (variants.empty()) size_ += size + kNodes;
    size_ += 2 * sizeof(variant);  // a summary has it once more
    variants.push_back(variant);
}

Summary Collector::Summarize(const std::vector<std::string>& patterns) const {
    Summary summary;
    std::vector<size_t> order(added_.size());
    std::iota(order.begin(), order.end(), 0);
    std::sort(order.begin(), order.end(), [&](size_t a, size_t b) {
        return VariantOrder()(added_[a].variant, added_[b].variant);
    });
    std::vector<size_t> place(added_.size());
    std::vector<size_t> good;
    for (size_t i = 0; i < order.size(); ++i) {
        const Added& added = added_[order[i]];
        place[order[i]] = i;
        summary.variants.push_back({added.variant, WordsOf(added.variant), added.failure});
        if (!added.failure) good.push_back(i);
    }

    std::set<std::string> names;
    for (const auto& [name, values] : others_) names.insert(name);
    if (!patterns.empty()) {
        for (const auto& [name, value] : base_) names.insert(name);
    }
    for (const std::string& name : names) {
        if (!patterns.empty() && !Matches(name, patterns)) continue;
        SummaryProperty property{name, {}};
        std::vector<size_t> others;  // the variants with another value than the base
        if (auto found = others_.find(name); found != others_.end()) {
            for (const auto& [value, variants] : found->second) {
                SummaryValue& entry = property.values.emplace_back();
                entry.value = value;
                for (const size_t number : variants) entry.variants.push_back(place[number]);
                std::sort(entry.variants.begin(), entry.variants.end());
                others.insert(others.end(), entry.variants.begin(), entry.variants.end());
            }
        }
        std::sort(others.begin(), others.end());
        SummaryValue rest;
        if (auto value = base_.find(name); value != base_.end()) rest.value = value->second;
        std::set_difference(good.begin(), good.end(), others.begin(), others.end(),
                            std::back_inserter(rest.variants));
        if (!rest.variants.empty()) property.values.push_back(std::move(rest));
        if (patterns.empty() && property.values.size() < 2) continue;
        const bool is_set = std::any_of(property.values.begin(), property.values.end(),
                                        [](const SummaryValue& value) { return value.value; });
        if (!is_set) continue;
        std::sort(property.values.begin(), property.values.end(),
                  [](const SummaryValue& a, const SummaryValue& b) {
                      if (a.variants.size() != b.variants.size()) {
                          return a.variants.size() < b.variants.size();
                      }
                      return a.variants.front() > b.variants.front();  // the device as it is last
                  });
        // All but the most common value, in the order of their variants.
        std::sort(property.values.begin(), property.values.end() - 1,
                  [](const SummaryValue& a, const SummaryValue& b) {
                      return a.variants.front() < b.variants.front();
                  });
        summary.properties.push_back(std::move(property));
    }
    return summary;
}

std::vector<SummaryProperty> Collector::SameEverywhere(const Summary& summary) const {
    const auto is_good = [](const SummaryVariant& variant) { return !variant.failure; };
    const auto& variants = summary.variants;
    const auto first = std::find_if(variants.begin(), variants.end(), is_good);
    if (first == variants.end()) return {};
    const auto good = static_cast<size_t>(std::count_if(variants.begin(), variants.end(), is_good));
    PropertyMap same = base_;
    for (const auto& [name, values] : others_) {
        same.erase(name);
        const auto& [value, having] = *values.begin();
        if (having.size() == good && value) same[name] = *value;
    }
    std::vector<SummaryProperty> properties;
    const auto number = static_cast<size_t>(first - variants.begin());
    for (auto& [name, value] : same) {
        properties.push_back({name, {{std::move(value), {number}, nullptr}}});
    }
    return properties;
}

std::vector<TraceRequest> OriginsToFind(const Summary& summary, std::vector<size_t>* variants) {
    std::map<size_t, std::set<std::string>> names;
    for (const auto* properties : {&summary.properties, &summary.same}) {
        for (const SummaryProperty& property : *properties) {
            for (const SummaryValue& value : property.values) {
                if (value.value) names[value.variants.front()].insert(property.name);
            }
        }
    }
    std::vector<TraceRequest> requests;
    for (auto& [variant, wanted] : names) {
        variants->push_back(variant);
        requests.push_back({summary.variants[variant].variant, std::move(wanted)});
    }
    return requests;
}

VariantsNamer::VariantsNamer(const std::vector<SummaryVariant>& all) : all_(all) {
    std::map<std::pair<int, std::string>, std::vector<size_t>> groups;
    for (size_t i = 0; i < all.size(); ++i) {
        for (int axis = 0; axis < kAxisCount && !all[i].failure; ++axis) {
            if (all[i].variant[axis]) groups[{axis, *all[i].variant[axis]}].push_back(i);
        }
    }
    for (auto& [value, variants] : groups) {
        if (variants.size() < 2) continue;
        groups_.push_back({std::string(kAxes[value.first].name) + "=" + value.second + " (" +
                                   Count(variants.size(), "variant", "variants") + ")",
                           std::move(variants)});
    }
}

std::string VariantsNamer::Text(const std::vector<size_t>& variants) const {
    constexpr size_t kMostListed = 6;
    std::vector<bool> wanted(all_.size());
    for (const size_t variant : variants) wanted[variant] = true;
    std::vector<const Group*> fitting;
    for (const Group& group : groups_) {
        const bool fits = std::all_of(group.variants.begin(), group.variants.end(),
                                      [&](size_t variant) { return wanted[variant]; });
        if (fits) fitting.push_back(&group);
    }
    // The largest group first; each must name at least two variants that no earlier one has named.
    std::stable_sort(fitting.begin(), fitting.end(), [](const Group* a, const Group* b) {
        return a->variants.size() > b->variants.size();
    });
    std::vector<std::string> texts;
    for (const Group* group : fitting) {
        const auto left = std::count_if(group->variants.begin(), group->variants.end(),
                                        [&](size_t variant) { return wanted[variant]; });
        if (left < 2) continue;
        texts.push_back(group->text);
        for (const size_t variant : group->variants) wanted[variant] = false;
    }
    for (const size_t variant : variants) {
        if (wanted[variant]) texts.push_back(VariantText(all_[variant].variant));
    }
    const size_t listed = std::min(texts.size(), kMostListed);
    const size_t more = texts.size() - listed;
    texts.resize(listed);
    std::string text = android::base::Join(texts, ", ");
    if (more > 0) text += " and " + std::to_string(more) + " more";
    return text;
}

std::vector<std::optional<std::string>> ValuesByVariant(const SummaryProperty& property,
                                                        size_t variants) {
    std::vector<std::optional<std::string>> values(variants);
    for (const SummaryValue& value : property.values) {
        for (const size_t variant : value.variants) values[variant] = value.value;
    }
    return values;
}

}  // namespace extprop
