#include "matrix/variants.h"

#include <algorithm>

#include "boot/boot.h"
#include "budget.h"
#include "input_error.h"

namespace extprop {

namespace {

bool IsChosen(int axis, const std::string& value, const VariantChoice& choice) {
    const std::set<std::string>& only = choice.only[axis];
    return (only.empty() || only.count(value) != 0) && choice.except[axis].count(value) == 0;
}

bool IsChosen(const Variant& variant, const VariantChoice& choice) {
    for (int axis = 0; axis < kAxisCount; ++axis) {
        if (!IsChosen(axis, variant[axis].value_or(kAsItIs), choice)) return false;
    }
    return true;
}

}  // namespace

bool VariantOrder::operator()(const Variant& a, const Variant& b) const {
    const auto set = [](const Variant& variant) {
        return std::count_if(variant.begin(), variant.end(),
                             [](const auto& value) { return value.has_value(); });
    };
    if (set(a) != set(b)) return set(a) < set(b);
    for (int axis = 0; axis < kAxisCount; ++axis) {
        if (a[axis].has_value() != b[axis].has_value()) return a[axis].has_value();
        if (a[axis] != b[axis]) return a[axis] < b[axis];
    }
    return false;
}

std::string VariantText(const Variant& variant) {
    std::string text;
    for (int axis = 0; axis < kAxisCount; ++axis) {
        if (!variant[axis]) continue;
        text += std::string(text.empty() ? "" : " ") + kAxes[axis].name + "=" + *variant[axis];
    }
    return text.empty() ? "as it is" : text;
}

std::vector<std::string> WordsOf(const Variant& variant) {
    return WordsOf(Addition{variant, {}, {}}, false);
}

void CheckCount(size_t variants, size_t values) {
    if (values == 0 || variants <= limits::kVariants / values) return;
    throw InputError("more than " + std::to_string(limits::kVariants) +
                     " variants are chosen, which is the limit");
}

std::vector<Variant> ChosenVariants(const VariantSpace& space, const VariantChoice& choice) {
    std::vector<Variant> variants = {{}};
    for (int axis = 0; axis < kAxisCount; ++axis) {
        const bool in_product = std::count(choice.over.begin(), choice.over.end(), axis) != 0;
        if (!choice.over.empty() && !in_product) continue;
        std::vector<std::string> values;
        for (const std::string& value : space.values[axis]) {
            if (IsChosen(axis, value, choice)) values.push_back(value);
        }
        // In a product every variant so far gets every value; otherwise only the first does, which
        // is the device as it is.
        const size_t bases = in_product ? variants.size() : 1;
        const bool stays = !in_product || IsChosen(axis, kAsItIs, choice);
        CheckCount(bases, values.size());
        CheckCount(bases * values.size() + (stays ? variants.size() : 0), 1);
        for (size_t base = 0; base < bases; ++base) {
            for (const std::string& value : values) {
                variants.push_back(variants[base]);
                variants.back()[axis] = value;
            }
        }
        if (!stays) {
            variants.erase(variants.begin(), variants.begin() + static_cast<ptrdiff_t>(bases));
        }
    }
    variants.erase(
            std::remove_if(variants.begin(), variants.end(),
                           [&](const Variant& variant) { return !IsChosen(variant, choice); }),
            variants.end());
    std::sort(variants.begin(), variants.end(), VariantOrder());
    return variants;
}

}  // namespace extprop
