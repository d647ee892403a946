#include "output/matrix_text.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "output/text.h"
#include "printable.h"

namespace extprop {

namespace {

std::string ValueText(const std::optional<std::string>& value) {
    if (!value) return "(unset)";
    return value->empty() ? "(empty)" : *value;
}

std::string VariantCount(size_t count) {
    return Count(count, "variant", "variants");
}

void AddFailures(const std::vector<SummaryVariant>& variants, Text* text) {
    for (const SummaryVariant& variant : variants) {
        if (!variant.failure) continue;
        *text << VariantText(variant.variant) << ": " << FailureText(*variant.failure) << "\n";
    }
}

}  // namespace

std::string SummaryText(const Summary& summary, bool has_names) {
    const VariantsNamer namer(summary.variants);
    size_t good = 0;
    for (const SummaryVariant& variant : summary.variants) good += !variant.failure;
    Text text;
    for (const SummaryProperty& property : summary.properties) {
        text << property.name << "\n";
        std::vector<std::string> shown;
        size_t width = 0;
        for (const SummaryValue& value : property.values) {
            shown.push_back(Printable(ValueText(value.value)));
            width = std::max(width, std::min<size_t>(shown.back().size(), 40));
        }
        auto next = shown.begin();
        size_t listed = 0;  // variants
        for (const SummaryValue& value : property.values) {
            if (&value != &property.values.back()) listed += value.variants.size();
            next->resize(std::max(next->size(), width), ' ');
            text << "  " << *next++ << "  ";
            if (value.variants.size() == good) {
                text << (good == 1 ? "the one variant" : "all " + VariantCount(good));
            } else if (&value == &property.values.back() && value.variants.size() > 1 &&
                       value.variants.size() + listed == good) {
                text << "all " << value.variants.size() << " other variants";
            } else {
                text << namer.Text(value.variants);
            }
            text << "\n";
            if (value.origin) {
                text << "    " << value.origin->at("text").get<std::string>() << "\n";
            }
        }
    }
    if (summary.properties.empty() && good > 0 && !has_names) {
        text << "no property differs between the variants\n";
    }
    if (!summary.dead.empty()) text << "\nNo variant and no step reads:\n";
    for (const DeadPlace& place : summary.dead) {
        text << "  " << place.path << "\n    " << place.reason << "\n";
    }
    text << "\n" << VariantCount(summary.variants.size());
    if (good < summary.variants.size()) {
        text << ", of which the library did not survive " << summary.variants.size() - good
             << ":\n";
        AddFailures(summary.variants, &text);
    } else {
        text << "\n";
    }
    return text.string();
}

std::string MatrixDifferenceText(const MatrixDifference& difference) {
    const VariantsNamer namer(difference.variants);
    Text text;
    for (const MatrixChange& change : difference.changes) {
        const bool is_everywhere = change.variants.size() == difference.variants.size();
        text << (is_everywhere ? "all " : "") << VariantCount(change.variants.size()) << ": "
             << change.name << " " << ValueText(change.a) << " -> " << ValueText(change.b);
        if (!is_everywhere) text << "  [" << namer.Text(change.variants) << "]";
        text << "\n";
    }
    const struct {
        const std::string& device;
        const std::vector<Variant>& variants;
    } sides[] = {{difference.device_a, difference.only_a},
                 {difference.device_b, difference.only_b}};
    for (const auto& side : sides) {
        for (const Variant& variant : side.variants) {
            text << "only " << side.device << " has " << VariantText(variant) << "\n";
        }
    }
    AddFailures(difference.failed, &text);
    if (difference.empty()) {
        text << "no difference in " << VariantCount(difference.variants.size()) << "\n";
    }
    return text.string();
}

std::string SpaceText(const VariantSpace& space, size_t chosen) {
    Text text;
    for (int axis = 0; axis < kAxisCount; ++axis) {
        std::string name = kAxes[axis].name;
        name.resize(12, ' ');
        text << name;
        for (const std::string& value : space.values[axis]) text << " " << value;
        text << (space.values[axis].empty() ? " -" : "") << "\n";
    }
    text << "\n" << VariantCount(chosen) << "\n";
    return text.string();
}

}  // namespace extprop
