// The variants of a device: what its brand, its region and its keys can be, and what a boot needs
// for them to be so.

#pragma once

#include <array>
#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "boot/boot.h"
#include "device/places.h"

namespace extprop {

enum AxisIndex { kBrandAxis, kRegionAxis, kNvAxis, kFirstKeyAxis, kAxisCount = kFirstKeyAxis + 4 };

// The axes' names, in their order; the last are those of SwitchKeys().
inline constexpr const char* kAxisNames[kAxisCount] = {
        "brand", "region", "nv", "sim-first", "sim-current", "channel", "region-key"};

// Returns the axis of that name. Throws InputError that says which there are.
int AxisNamed(const std::string& name);

// One value for each axis; an axis without one is as the device is.
using Variant = std::array<std::optional<std::string>, kAxisCount>;

// The order in which variants are told of: the device as it is, then those with one value, and so
// on, in the order of the axes and values.
struct VariantOrder {
    bool operator()(const Variant& a, const Variant& b) const;
};

// Such as "region=EU sim-first=north", or "as it is".
std::string VariantText(const Variant& variant);

// What a device directory tells of its variants.
struct VariantSpace {
    std::array<std::set<std::string>, kAxisCount> values;
    // For each switch key the files that have to say it, so that none says otherwise: by the root
    // that loads them, or of no root.
    using FilesByRoot = std::map<std::string, std::set<std::string>>;
    std::array<FilesByRoot, kAxisCount - kFirstKeyAxis> key_files;
    // The device's own.
    std::string brand_code;
    std::string region;
};

// Looks the space up in the device. Throws std::runtime_error if the library, which reads mapping
// and key files for it, does not come back in time.
VariantSpace FindVariantSpace(const sandbox::Sandbox& root, std::chrono::seconds limit);

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

// Returns the words of a command line that make the variant of the device that `options` boot.
Words WordsFor(const Variant& variant, const VariantSpace& space, const BootOptions& options);

// Returns the words that, behind those above, set a switch key once more behind the steps that go
// without saying and have its directories loaded: where these steps lose it.
Words LateWordsFor(int axis, const std::string& value);

}  // namespace extprop
