#include "matrix/variants.h"

#include <algorithm>
#include <stdexcept>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <nlohmann/json.hpp>

#include "InitExtensionPropertyImpl.h"
#include "TesvoExtensionProperty/cota.h"
#include "TesvoExtensionProperty/names.h"
#include "TesvoExtensionProperty/partitions.h"
#include "boot/load_tracker.h"
#include "boot/message.h"
#include "boot/real_path.h"
#include "budget.h"
#include "device/inside.h"
#include "device/legal.h"
#include "device/property_lines.h"
#include "device/property_text.h"
#include "input_error.h"
#include "utils.h"

namespace extprop {

namespace {

using namespace android::init;
using android::base::StartsWith;

// Looks inside the sandbox.
class SpaceFinder {
  public:
    VariantSpace Find() {
        space_.region = load_property_from_file(kRegionBuildProp, kRegion);
        for (const Brand& brand : kBrands) {
            if (partitionRoots(brand.code, space_.region) == findPartitionRoots()) {
                space_.brand_code = brand.code;
            }
        }
        FindRegions();
        FindBrands();
        for (const std::string& root : AllRoots()) {
            for (const char* map : {kSwitchKeyMap, kNvFlagMap}) {
                for (const auto& [key, target] : LoadedFrom(root + "/etc/" + map)) {
                    if (CanBeValue(key) && key.size() <= kNvKeySize) {
                        space_.values[kNvAxis].insert(key);
                    }
                }
            }
            ForEachKeyDirectory(root,
                                [&](size_t index, const std::string& key, const std::string&) {
                                    if (CanBeValue(key))
                                        space_.values[kFirstKeyAxis + index].insert(key);
                                });
            FindKeyLines(root);
        }
        FindKeyFiles();
        return std::move(space_);
    }

  private:
    void FindRegions() {
        for (const Entry& entry : EntriesIn(RegionsDirectory())) {
            if (entry.is_directory && CanBeValue(entry.name)) {
                space_.values[kRegionAxis].insert(entry.name);
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

    std::set<std::string> AllRoots() const {
        std::set<std::string> roots = {kCompanyRoot};
        std::vector<std::string> codes = {""};
        for (const Brand& brand : kBrands) codes.emplace_back(brand.code);
        std::set<std::string> regions = space_.values[kRegionAxis];
        regions.insert(space_.region);
        for (const std::string& code : codes) {
            for (const std::string& region : regions) {
                for (const std::string& root : partitionRoots(code, region)) roots.insert(root);
            }
        }
        // A mounted carrier package.
        const PropertyMap info = LoadedFrom(kCotaMountInfoFile);
        auto package = info.find(kCotaRoot);
        if (package != info.end() && StartsWith(package->second, "/")) {
            roots.insert({package->second, package->second + "/cust"});
        }
        return roots;
    }

    // Finds the files with a key's line of those that the root's own one leads to. They are not
    // loaded, as one that imports itself would end this.
    void FindKeyLines(const std::string& root) {
        std::vector<std::string> paths = {root + "/" + kBuildProp};
        std::set<std::string> seen;
        while (!paths.empty()) {
            const auto own = RealPath(paths.back(), false);
            paths.pop_back();
            if (!own || !seen.insert(*own).second) continue;
            const std::string content = LoadTracker::Content(*own).value_or("");
            for (const PropertyLine& line : PropertyLines(content)) {
                if (line.kind == PropertyLine::kImport) {
                    if (const auto path = ExpandProps(std::string(line.name)); path.ok()) {
                        paths.push_back(*path);
                    }
                }
                for (size_t i = 0; i < SwitchKeys().size(); ++i) {
                    if (line.name == SwitchKeys()[i].property)
                        space_.key_files[i][root].insert(*own);
                }
            }
        }
    }

    void FindKeyFiles() {
        for (size_t i = 0; i < SwitchKeys().size(); ++i) {
            space_.key_files[i][""].insert(SwitchKeys()[i].key_file);
        }
        for (const FixedFile& file : FixedFiles()) {
            if (file.occasion != Occasion::kKeyFiles && file.occasion != Occasion::kDataCommon) {
                continue;
            }
            const PropertyMap properties = LoadedFrom(file.path);
            for (size_t i = 0; i < SwitchKeys().size(); ++i) {
                if (properties.count(SwitchKeys()[i].property) != 0) {
                    space_.key_files[i][""].insert(file.path);
                }
            }
        }
    }

    VariantSpace space_;
};

// Returns the partitions that the variant loads.
std::vector<std::string> RootsOf(const Variant& variant, const VariantSpace& space) {
    std::string code = space.brand_code;
    for (const Brand& brand : kBrands) {
        if (variant[kBrandAxis] == brand.name) code = brand.code;
    }
    return partitionRoots(code, variant[kRegionAxis].value_or(space.region));
}

bool HasPersist(const BootOptions& options) {
    return std::any_of(options.plan.steps.begin(), options.plan.steps.end(), [](const Step& step) {
        return std::string_view(step.kind->word) == "persist";
    });
}

bool IsChosen(int axis, const std::string& value, const Choice& choice) {
    const std::set<std::string>& only = choice.only[axis];
    return (only.empty() || only.count(value) != 0) && choice.except[axis].count(value) == 0;
}

bool IsChosen(const Variant& variant, const Choice& choice) {
    for (int axis = 0; axis < kAxisCount; ++axis) {
        if (!IsChosen(axis, variant[axis].value_or(kAsItIs), choice)) return false;
    }
    return true;
}

}  // namespace

int AxisNamed(const std::string& name) {
    std::string known;
    for (int axis = 0; axis < kAxisCount; ++axis) {
        if (name == kAxisNames[axis]) return axis;
        known += std::string(axis == 0 ? "" : ", ") + kAxisNames[axis];
    }
    throw InputError("there is no axis '" + name + "'; the axes are " + known);
}

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
        text += std::string(text.empty() ? "" : " ") + kAxisNames[axis] + "=" + *variant[axis];
    }
    return text.empty() ? "as it is" : text;
}

VariantSpace FindVariantSpace(const sandbox::Sandbox& root, std::chrono::seconds limit) {
    const auto answer = AskInside(
            root,
            [] {
                const VariantSpace space = SpaceFinder().Find();
                return nlohmann::json::array(
                        {space.values, space.key_files, space.brand_code, space.region});
            },
            limit);
    if (!answer) {
        throw std::runtime_error(
                "the variants cannot be told: the library does not come back from a mapping, key "
                "or package file");
    }
    VariantSpace space;
    answer->at(0).get_to(space.values);
    answer->at(1).get_to(space.key_files);
    answer->at(2).get_to(space.brand_code);
    answer->at(3).get_to(space.region);
    return space;
}

void CheckCount(size_t variants, size_t values) {
    if (values == 0 || variants <= limits::kVariants / values) return;
    throw InputError("more than " + std::to_string(limits::kVariants) +
                     " variants are chosen, which is the limit");
}

std::vector<Variant> ChosenVariants(const VariantSpace& space, const Choice& choice) {
    std::vector<Variant> variants = {{}};
    for (int axis = 0; axis < kAxisCount; ++axis) {
        const bool in_product = std::count(choice.over.begin(), choice.over.end(), axis) != 0;
        if (!choice.over.empty() && !in_product) continue;
        std::vector<std::string> values;
        for (const std::string& value : space.values[axis]) {
            if (IsChosen(axis, value, choice)) values.push_back(value);
        }
        // In a product every variant so far gets every value; otherwise the first alone does.
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

Words WordsFor(const Variant& variant, const VariantSpace& space, const BootOptions& options) {
    Words words;
    constexpr const char* kOptions[kFirstKeyAxis] = {"--brand", "--region", "--nv"};
    for (int axis = 0; axis < kFirstKeyAxis; ++axis) {
        if (variant[axis]) words = words + Words{kOptions[axis], *variant[axis]};
    }
    const std::vector<std::string> roots = RootsOf(variant, space);
    for (size_t i = 0; i < SwitchKeys().size(); ++i) {
        const auto& value = variant[kFirstKeyAxis + i];
        if (!value) continue;
        const std::string setting = SwitchKeys()[i].property + ("=" + *value);
        // Without the step that reads the key files, the property alone says what the key is.
        if (!HasPersist(options) && !WhyRefused(SwitchKeys()[i].property, *value)) {
            words = words + Words{"--set", setting};
        }
        std::set<std::string> sayers;
        for (const auto& [root, files] : space.key_files[i]) {
            if (!root.empty() && std::count(roots.begin(), roots.end(), root) == 0) continue;
            sayers.insert(files.begin(), files.end());
        }
        for (const std::string& file : sayers)
            words = words + Words{"--edit", file + ":" + setting};
    }
    return words;
}

Words LateWordsFor(int axis, const std::string& value) {
    const SwitchKey& key = SwitchKeys()[axis - kFirstKeyAxis];
    return TriedWords(key.property, value) + Words{kTriedStep, std::string("sim:") + key.command};
}

}  // namespace extprop
