// What a device directory says of the phones that it can become: the values of each axis, and the
// places that belong to them.

#pragma once

#include <array>
#include <chrono>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "boot/boot.h"
#include "sandbox.h"

namespace extprop {

// A root of the list of partitions, and the variant that brings it there.
struct ListedRoot {
    std::string path;  // the device's own
    Variant variant;
};

struct VariantSpace {
    std::array<std::set<std::string>, kAxisCount> values;
    std::string brand_code, region;  // that choose the roots of the device as it is, or empty
    std::vector<ListedRoot> roots;
    // For each target of an old nv key the variants with such a key.
    std::map<std::string, std::vector<Variant>> old_keys;
    std::string unmapped_key;  // an nv key that no file maps
    // The device's own paths of the files that the library knows by name, and of the company image.
    std::set<std::string> fixed_files;
    std::string company_root;
};

// Looks the space up in the device. Throws std::runtime_error if the library, which reads mapping
// and package files for it, does not come back in time.
VariantSpace FindVariantSpace(const sandbox::Sandbox& root, std::chrono::seconds limit);

// How the library may be brought to read a file for its own sake: on a phone that is so, by one of
// these steps, the likeliest first.
struct Way {
    Variant variant;
    PropertyMap settings;
    std::vector<std::string> steps;
};

// Returns the ways to the device's own file at `path` that its place names, none if nothing but an
// import can lead there.
std::vector<Way> WaysTo(const std::string& path, const VariantSpace& space);

// Makes `*variant` what `other` is, too. Returns false if both say something of an axis.
bool Merge(const Variant& other, Variant* variant);

}  // namespace extprop
