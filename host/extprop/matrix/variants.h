// Chooses the variants of a device to boot, and defines their order.

#pragma once

#include <array>
#include <set>
#include <string>
#include <vector>

#include "boot/what_if.h"
#include "coverage/space.h"

namespace extprop {

// The order in which variants are reported: the device as it is, then those with a value on one
// axis, on two, and so on; within these by axes and values.
struct VariantOrder {
    bool operator()(const Variant& a, const Variant& b) const;
};

// Returns text such as "region=EU sim-first=north", or "as it is".
std::string VariantText(const Variant& variant);

// Returns the command line's words for the variant.
std::vector<std::string> WordsOf(const Variant& variant);

// The user's choice of variants.
struct VariantChoice {
    std::vector<int> over;  // the axes of which to take the product; none: each axis by itself
    std::array<std::set<std::string>, kAxisCount> only;    // none: all values
    std::array<std::set<std::string>, kAxisCount> except;  // kAsItIs: no value
};
inline constexpr char kAsItIs[] = "as-is";

// Throws InputError if `variants` times `values` is more than the limit.
void CheckCount(size_t variants, size_t values);

// Returns the chosen variants in VariantOrder. Throws InputError if there are more than the limit.
std::vector<Variant> ChosenVariants(const VariantSpace& space, const VariantChoice& choice);

}  // namespace extprop
