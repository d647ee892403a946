#include "output/matrix_text.h"

#include <algorithm>

#include "output/printable.h"
#include "output/text.h"

namespace extprop {

namespace {

std::string ValueText(const std::optional<std::string>& value) {
    if (!value) return "(unset)";
    return value->empty() ? "(empty)" : Printable(*value);
}

std::string VariantCount(size_t count) {
    return std::to_string(count) + (count == 1 ? " variant" : " variants");
}

std::string FailuresText(const std::vector<SummaryVariant>& variants) {
    std::string text;
    for (const SummaryVariant& variant : variants) {
        if (!variant.failure) continue;
        text += Printable(VariantText(variant.variant)) + ": " + FailureText(*variant.failure) +
                "\n";
    }
    return text;
}

}  // namespace

std::string SummaryText(const Summary& summary) {
    const VariantsNamer namer(summary.variants);
    size_t good = 0;
    for (const SummaryVariant& variant : summary.variants) good += !variant.failure;
    std::string text;
    for (const SummaryProperty& property : summary.properties) {
        text += Printable(property.name) + "\n";
        size_t width = 0;
        for (const SummaryValue& value : property.values) {
            width = std::max(width, std::min<size_t>(ValueText(value.value).size(), 40));
        }
        for (const SummaryValue& value : property.values) {
            std::string shown = ValueText(value.value);
            shown.resize(std::max(shown.size(), width), ' ');
            text += "  " + shown + "  ";
            if (value.variants.size() == good) {
                text += good == 1 ? "the one variant" : "all " + VariantCount(good);
            } else if (&value == &property.values.back() && value.variants.size() > 1) {
                text += "all " + std::to_string(value.variants.size()) + " others";
            } else {
                text += Printable(namer.Text(value.variants));
            }
            text += "\n";
            if (!value.origin.is_null()) {
                text += "    " + Printable(value.origin.at("text")) + "\n";
            }
        }
    }
    if (summary.properties.empty() && good > 0)
        text += "no property differs between the variants\n";
    if (!summary.dead.empty()) text += "\nNo variant and no step reads:\n";
    for (const DeadPlace& place : summary.dead) {
        text += "  " + Printable(place.path) + "\n    " + Printable(place.reason) + "\n";
    }
    text += "\n" + VariantCount(summary.variants.size());
    if (good < summary.variants.size()) {
        text += ", of which the library did not survive " +
                std::to_string(summary.variants.size() - good) + ":\n" +
                FailuresText(summary.variants);
    } else {
        text += "\n";
    }
    return text;
}

std::string MatrixDifferenceText(const MatrixDifference& difference) {
    const VariantsNamer namer(difference.variants);
    std::string text;
    for (const MatrixChange& change : difference.changes) {
        text += change.variants.size() == difference.variants.size()
                        ? "all " + VariantCount(change.variants.size())
                        : VariantCount(change.variants.size());
        text += ": " + Printable(change.name) + " " + ValueText(change.a) + " -> " +
                ValueText(change.b);
        if (change.variants.size() < difference.variants.size()) {
            text += "  [" + Printable(namer.Text(change.variants)) + "]";
        }
        text += "\n";
    }
    const struct {
        const std::string& device;
        const std::vector<Variant>& variants;
    } sides[] = {{difference.device_a, difference.only_a},
                 {difference.device_b, difference.only_b}};
    for (const auto& side : sides) {
        for (const Variant& variant : side.variants) {
            text += "only " + Printable(side.device) + " has " + Printable(VariantText(variant)) +
                    "\n";
        }
    }
    text += FailuresText(difference.failed);
    if (difference.empty()) {
        text += "no difference in " + VariantCount(difference.variants.size()) + "\n";
    }
    return text;
}

std::string SpaceText(const VariantSpace& space, size_t chosen) {
    std::string text;
    for (int axis = 0; axis < kAxisCount; ++axis) {
        std::string line = kAxisNames[axis];
        line.resize(13, ' ');
        for (const std::string& value : space.values[axis]) line += Printable(value) + " ";
        if (space.values[axis].empty()) line += "- ";
        line.back() = '\n';
        text += line;
    }
    return text + "\n" + VariantCount(chosen) + "\n";
}

}  // namespace extprop
