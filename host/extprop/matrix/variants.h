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

// Returns text such as "region=EU sim-first=north", or "as it is" if no axis has a value. It is not
// made printable.
std::string VariantText(const Variant& variant);

// Returns the command line's words for the variant, such as {"--region", "EU"}; none for the device
// as it is.
std::vector<std::string> WordsOf(const Variant& variant);

// The user's choice of variants.
struct VariantChoice {
    std::vector<int> over;  // the axes of which to take the product; none: each axis by itself
    // In these two kAsItIs stands for the axis without a value. Values that the device does not
    // have choose nothing.
    std::array<std::set<std::string>, kAxisCount> only;    // none: all values
    std::array<std::set<std::string>, kAxisCount> except;  // none: no value
};
inline constexpr char kAsItIs[] = "as-is";

// Throws InputError if `variants` times `values` is more than limits::kVariants.
void CheckCount(size_t variants, size_t values);

// Returns the chosen variants in VariantOrder, each once; there may be none. Throws InputError if
// there are more than limits::kVariants.
std::vector<Variant> ChosenVariants(const VariantSpace& space, const VariantChoice& choice);

}  // namespace extprop
