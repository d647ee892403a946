// Which variants of a device are to be booted, and in which order they are told of.

#pragma once

#include <array>
#include <set>
#include <string>
#include <vector>

#include "boot/what_if.h"
#include "coverage/space.h"

namespace extprop {

// The order in which variants are told of: the device as it is, then those with one value, and so
// on, in the order of the axes and values.
struct VariantOrder {
    bool operator()(const Variant& a, const Variant& b) const;
};

// Such as "region=EU sim-first=north", or "as it is".
std::string VariantText(const Variant& variant);

// Returns the words of a command line that make the variant.
std::vector<std::string> WordsOf(const Variant& variant);

// Which variants are wanted.
struct Choice {
    std::vector<int> over;  // the axes to take the product of; none: each axis by itself
    std::array<std::set<std::string>, kAxisCount> only;    // none: all values
    std::array<std::set<std::string>, kAxisCount> except;  // kAsItIs for the device's own
};
inline constexpr char kAsItIs[] = "as-is";

// Throws InputError if so many variants, each with so many values, are more than the limit.
void CheckCount(size_t variants, size_t values);

// Returns the wanted ones in their order. Throws InputError before there are too many.
std::vector<Variant> ChosenVariants(const VariantSpace& space, const Choice& choice);

}  // namespace extprop
