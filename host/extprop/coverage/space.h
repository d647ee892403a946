// The variants that DEVICE can become: the values of each axis, and the places that belong to them.

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

// A partition root, and the variant that adds it to the list of partitions.
struct ListedRoot {
    std::string path;  // the device's own
    Variant variant;
};

struct VariantSpace {
    std::array<std::set<std::string>, kAxisCount> values;  // never empty texts
    std::string brand_code, region;                        // of the device as it is; may be empty
    std::vector<ListedRoot> roots;
    // For each key to which an old nv key is mapped, the variants with such an old key.
    std::map<std::string, std::vector<Variant>> old_keys;
    std::string unmapped_key;  // an nv key that no file maps
    // The device's own paths of the files that the library knows by name, and of the company image.
    std::set<std::string> fixed_files;
    std::string company_root;
};

// Finds the space in the device's files; what is missing there is no error. The library reads
// mapping files and the device's brand and region for it; throws std::runtime_error if it crashes
// or exceeds the limit, and as AskInside() does.
VariantSpace FindVariantSpace(const sandbox::Sandbox& root, std::chrono::seconds limit);

// What may make the library read a file other than by an import: a variant and settings with one of
// these steps, the likeliest first.
struct Candidate {
    Variant variant;
    PropertyMap settings;
    std::vector<std::string> steps;
};

// Returns the candidates for the device's own file at `path`, which follow from its place and need
// not have an effect; none if only an import can lead there. Does not look the file up.
std::vector<Candidate> CandidatesFor(const std::string& path, const VariantSpace& space);

// Adds the values of `other` to `*variant`. Returns false, with some of them added, if the two have
// different values for an axis.
bool Merge(const Variant& other, Variant* variant);

}  // namespace extprop
