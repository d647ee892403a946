#include "coverage/space.h"

#include <algorithm>
#include <stdexcept>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "TesvoExtensionProperty/names.h"
#include "TesvoExtensionProperty/partitions.h"
#include "boot/message.h"
#include "boot/real_path.h"
#include "boot/report_fields.h"
#include "coverage/mounts.h"
#include "device/inside.h"
#include "utils.h"

namespace extprop {

namespace {

using namespace android::init;
using android::base::EndsWith;
using android::base::StartsWith;

// Returns whether a phone can have the value in its files and properties.
bool CanBe(int axis, const std::string& value) {
    return CanBeValue(value) && !WhyImpossible(axis, value);
}

// Finds the space, inside the sandbox.
class SpaceFinder {
  public:
    VariantSpace Find() {
        FindRegions();
        FindBrands();
        FindRoots();
        for (const std::string& root : SearchedRoots()) {
            ForEachKeyDirectory(root,
                                [&](size_t index, const std::string& key, const std::string&) {
                                    const int axis = kFirstKeyAxis + static_cast<int>(index);
                                    if (CanBe(axis, key)) space_.values[axis].insert(key);
                                });
        }
        for (const ListedRoot& root : space_.roots) FindOldKeys(root);
        for (const FixedFile& file : FixedFiles()) {
            if (const auto own = RealPath(file.path, false)) space_.fixed_files.insert(*own);
        }
        space_.company_root = RealPath(kCompanyRoot, true).value_or(kCompanyRoot);
        for (const char* key : {"unmapped", "no key", "0"}) {
            if (space_.values[kNvAxis].count(key) == 0) space_.unmapped_key = key;
        }
        return std::move(space_);
    }

  private:
    void FindRegions() {
        for (const std::string& directory : RegionsDirectories()) {
            for (const DirectoryEntry& entry : EntriesIn(directory)) {
                if (entry.is_directory && CanBeValue(entry.name)) {
                    space_.values[kRegionAxis].insert(entry.name);
                }
            }
        }
    }

    void FindBrands() {
        for (const Brand& brand : kBrands) {
            for (const std::string& root : AddedRoots(brand.code, "")) {
                if (IsDirectory(root)) space_.values[kBrandAxis].insert(brand.name);
            }
        }
    }

    // Finds the device's own roots, then those that another brand or region adds.
    void FindRoots() {
        const std::string& region = space_.region =
                load_property_from_file(kRegionBuildProp, kRegion);
        const std::vector<std::string> own = findPartitionRoots();
        std::string& code = space_.brand_code;
        for (const Brand& brand : kBrands) {
            if (partitionRoots(brand.code, region) == own) code = brand.code;
        }
        AddRoots(own, {});
        Variant variant;
        for (const Brand& brand : kBrands) {
            variant[kBrandAxis] = brand.name;
            AddRoots(partitionRoots(brand.code, region), variant);
        }
        variant = {};
        std::set<std::string> regions = space_.values[kRegionAxis];
        regions.insert("");
        for (const std::string& other : regions) {
            variant[kRegionAxis] = other;
            AddRoots(partitionRoots(code, other), variant);
        }
    }

    void AddRoots(const std::vector<std::string>& roots, const Variant& variant) {
        for (const std::string& root : roots) {
            const auto path = RealPath(root, true);
            if (!path || !IsDirectory(*path) || !listed_.insert(*path).second) continue;
            space_.roots.push_back({*path, variant});
        }
    }

    std::set<std::string> SearchedRoots() const {
        std::set<std::string> roots = {kCompanyRoot};
        for (const ListedRoot& root : space_.roots) roots.insert(root.path);
        for (const Mount& mount : FindMounts()) {
            roots.insert({mount.source, mount.source + "/cust"});
        }
        return roots;
    }

    void FindOldKeys(const ListedRoot& root) {
        for (const char* map : {kSwitchKeyMap, kNvFlagMap}) {
            for (const auto& [key, target] : LoadedFrom(root.path + "/etc/" + map)) {
                if (!CanBeValue(key) || key.size() > kNvKeySize) continue;
                space_.values[kNvAxis].insert(key);
                if (map != kNvFlagMap) continue;
                space_.old_keys[target].push_back(root.variant);
                space_.old_keys[target].back()[kNvAxis] = key;
            }
        }
    }

    VariantSpace space_;
    std::set<std::string> listed_;
};

// For the date of a company image and an operator pair, of which any value has the effect.
constexpr char kAnyValue[] = "what-if";

bool IsMap(const std::string& name) {
    return name == kSwitchKeyMap || name == kNvFlagMap;
}

// Adds the candidates for a file with this path below a root of the variant.
void AddCandidatesBelow(const std::string& below, const Variant& variant, const VariantSpace& space,
                        std::vector<Candidate>* candidates) {
    constexpr char kEtc[] = "etc/";
    constexpr char kOldKeyFile[] = "build.";
    constexpr char kSuffix[] = ".prop";
    if (below == kBuildProp) candidates->push_back({variant, {}, {"early"}});
    if (!StartsWith(below, kEtc) || below.find('/', sizeof(kEtc) - 1) != std::string::npos) return;
    const std::string name = below.substr(sizeof(kEtc) - 1);
    if (IsMap(name)) {
        Variant unmapped = variant;
        unmapped[kNvAxis] = space.unmapped_key;
        candidates->push_back({variant, {}, {"persist"}});
        candidates->push_back({unmapped, {}, {"persist"}});
    }
    if (name == kOldKeyFile + std::string(kSuffix)) {
        const PropertyMap pair = {{kOperatorA, kAnyValue}, {kOperatorB, kAnyValue}};
        candidates->push_back({variant, pair, {"persist", "sim"}});
    }
    for (const auto& [target, keys] : space.old_keys) {
        if (name != kOldKeyFile + target + kSuffix) continue;
        for (const Variant& key : keys) {
            Variant both = variant;
            if (Merge(key, &both)) candidates->push_back({both, {}, {"persist", "sim"}});
        }
    }
}

// Adds the candidate for a file in a switch key's directory with this path below a root.
void AddKeyCandidate(const std::string& below, const Variant& variant,
                     std::vector<Candidate>* candidates) {
    const std::string directory = android::base::Dirname(below);
    const std::string properties = std::string(kKeysDirectory) + "/";
    for (int axis = kFirstKeyAxis; axis < kAxisCount; ++axis) {
        const SwitchKey& key = KeyOf(axis);
        const std::string end = std::string("/") + key.leaf;
        if (!EndsWith(below, ".prop") || !EndsWith(directory, end)) continue;
        if (directory.size() <= properties.size() + end.size()) continue;
        const std::string value = directory.substr(
                properties.size(), directory.size() - properties.size() - end.size());
        Variant both = variant;
        both[axis] = value;
        if (!CanBe(axis, value)) continue;
        candidates->push_back(
                {both, {}, {std::string("sim:") + key.command, "persist", "sim", "cota"}});
    }
}

}  // namespace

bool Merge(const Variant& other, Variant* variant) {
    for (int axis = 0; axis < kAxisCount; ++axis) {
        if (!other[axis] || (*variant)[axis] == other[axis]) continue;
        if ((*variant)[axis]) return false;
        (*variant)[axis] = other[axis];
    }
    return true;
}

std::vector<Candidate> CandidatesFor(const std::string& path, const VariantSpace& space) {
    std::vector<Candidate> candidates;
    if (space.fixed_files.count(path) != 0) candidates.push_back({{}, {}, {"persist"}});
    // Any directory may be a root: of a carrier package or module, or one that a step names.
    for (size_t at = path.size(); (at = path.rfind('/', at - 1)) != std::string::npos && at > 0;) {
        const std::string root = path.substr(0, at);
        const std::string below = path.substr(at + 1);
        std::vector<Variant> variants;
        for (const ListedRoot& listed : space.roots) {
            if (listed.path == root) variants.push_back(listed.variant);
        }
        const bool is_company = root == space.company_root;
        if (variants.empty() || is_company) variants.emplace_back();
        std::vector<Candidate> found;
        for (const Variant& variant : variants) {
            AddCandidatesBelow(below, variant, space, &found);
            if (StartsWith(below, std::string(kKeysDirectory) + "/")) {
                AddKeyCandidate(below, variant, &found);
            }
        }
        candidates.insert(candidates.end(), found.begin(), found.end());
        for (Candidate& candidate : found) {
            if (!is_company) break;
            candidate.settings[kCompanyDate] = kAnyValue;
            candidates.push_back(std::move(candidate));
        }
    }
    return candidates;
}

template <typename Fields>
void Visit(Fields& fields, ListedRoot& root) {
    fields("path", root.path)("variant", root.variant);
}

VariantSpace FindVariantSpace(const sandbox::Sandbox& root, std::chrono::seconds limit) {
    const auto answer = AskInside(
            root,
            [] {
                const VariantSpace space = SpaceFinder().Find();
                json old_keys = json::object();
                for (const auto& [target, keys] : space.old_keys) old_keys[target] = Write(keys);
                return json::array({space.values, Write(space.roots), old_keys, space.unmapped_key,
                                    space.fixed_files, space.company_root, space.brand_code,
                                    space.region});
            },
            limit);
    if (!answer) {
        throw std::runtime_error(
                "the variants are unknown: the library does not return from a mapping file or the "
                "files of the brand and region");
    }
    VariantSpace space;
    answer->at(0).get_to(space.values);
    space.roots = FromJson<std::vector<ListedRoot>>(answer->at(1));
    for (const auto& [target, keys] : answer->at(2).items()) {
        space.old_keys[target] = FromJson<std::vector<Variant>>(keys);
    }
    answer->at(3).get_to(space.unmapped_key);
    answer->at(4).get_to(space.fixed_files);
    answer->at(5).get_to(space.company_root);
    answer->at(6).get_to(space.brand_code);
    answer->at(7).get_to(space.region);
    return space;
}

}  // namespace extprop
