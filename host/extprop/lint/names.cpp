// Rules on names: misspelt names of files, and keys, regions and brands for which the device has
// nothing.

#include <strings.h>

#include <algorithm>
#include <set>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "TesvoExtensionProperty/names.h"
#include "TesvoExtensionProperty/partitions.h"
#include "lint/rules.h"
#include "nearest.h"
#include "printable.h"
#include "utils.h"

namespace extprop {

namespace {

using android::base::Basename;
using android::base::Dirname;
using android::base::EndsWith;
using android::base::StartsWith;

constexpr const Rule& kMisspeltFile = RuleNamed("misspelt-file");
constexpr const Rule& kUnknownKey = RuleNamed("unknown-key");
constexpr const Rule& kUnknownRegion = RuleNamed("unknown-region");
constexpr const Rule& kUnknownBrand = RuleNamed("unknown-brand");
constexpr const Rule& kMisplacedMarketName = RuleNamed("misplaced-market-name");

constexpr char kMarketNames[] = "devicename.cfg";
constexpr size_t kNearName = 2;

// Finds files whose path is nearly one that the library reads, by the name of the file or of a
// directory. Other rules check property files.
class MisspeltFiles {
  public:
    MisspeltFiles(const std::vector<FoundFile>& places, const Coverage* coverage,
                  Findings* findings)
            : findings_(findings) {
        for (const FoundFile& place : places) paths_.insert(place.path);
        for (const FixedFile& file : FixedFiles()) expected_.emplace_back(file.path);
        if (coverage == nullptr) return;
        for (const ListedRoot& root : coverage->space().roots) {
            expected_.push_back(root.path + "/" + kBuildProp);
            for (const char* name : {android::init::kSwitchKeyMap, android::init::kNvFlagMap}) {
                expected_.push_back(root.path + "/etc/" + name);
            }
            if (Basename(Dirname(root.path)) == "cust") {
                expected_.push_back(root.path + "/etc/" + kMarketNames);
            }
        }
    }

    void Check(const FoundFile& place) {
        const std::string& path = place.path;
        if (!place.is_file() || UseOf(path) || EndsWith(path, "~")) return;
        for (const std::string& expected : expected_) {
            const auto [shorter, longer] = std::minmax({path.size(), expected.size()});
            if (longer - shorter > kNearName || path.compare(0, 3, expected, 0, 3) != 0) continue;
            if (std::count(path.begin(), path.end(), '/') !=
                        std::count(expected.begin(), expected.end(), '/') ||
                paths_.count(expected) != 0 || Distance(path, expected) > kNearName) {
                continue;
            }
            findings_->Add(kMisspeltFile, path,
                           std::string(kNoSuchFileRead) + Suggestion(expected));
            return;
        }
    }

  private:
    std::set<std::string> paths_;
    std::vector<std::string> expected_;
    Findings* findings_;
};

// Returns the line that a look-up of the name finds, or null.
const PropertyLine* LookedUp(const PropertyFiles& files, const std::string& path,
                             const std::string& name) {
    const auto file = files.find(path);
    if (file == files.end()) return nullptr;
    for (const PropertyLine& line : file->second.lines) {
        if (line.kind == PropertyLine::kProperty && StartsWith(line.text, name)) return &line;
    }
    return nullptr;
}

std::string WhichThereAre(const std::string& value, const std::vector<std::string>& known) {
    return SuggestionOf(value, known, std::min(kNearName, value.size() / 2));
}

void CheckBrand(const PropertyFiles& files, Findings* findings) {
    using namespace android::init;
    const PropertyLine* line = LookedUp(files, kSystemExtBuildProp, kBrand);
    if (line == nullptr || line->value.empty()) return;
    std::vector<std::string> known;
    for (const Brand& brand : kBrands) known.emplace_back(brand.name);
    const std::string value(line->value);
    const bool is_known = std::any_of(known.begin(), known.end(), [&](const std::string& brand) {
        return strcasecmp(brand.c_str(), value.c_str()) == 0;
    });
    if (is_known) return;
    findings->Add(kUnknownBrand, kSystemExtBuildProp, line->number,
                  "the library knows no brand " + QuotedShort(value) +
                          ", so it loads nothing of one" + WhichThereAre(value, known));
}

void CheckRegion(const PropertyFiles& files, const VariantSpace& space, Findings* findings) {
    using namespace android::init;
    const PropertyLine* line = LookedUp(files, kRegionBuildProp, kRegion);
    const std::set<std::string>& regions = space.values[kRegionAxis];
    if (line == nullptr || line->value.empty() || regions.empty()) return;
    const std::string value(line->value);
    if (regions.count(value) != 0) return;
    findings->Add(kUnknownRegion, kRegionBuildProp, line->number,
                  "there is no directory " +
                          QuotedShort(RegionsDirectories().front() + "/" + value) +
                          ", nor another one of this region" +
                          WhichThereAre(value, {regions.begin(), regions.end()}));
}

// Returns whether some file's import refers to the property, so that a key needs no directory.
bool IsReferred(const PropertyFiles& files, const std::string& property) {
    for (const auto& [path, file] : files) {
        for (const PropertyLine& line : file.lines) {
            if (line.kind == PropertyLine::kImport &&
                line.name.find(property) != std::string_view::npos) {
                return true;
            }
        }
    }
    return false;
}

void CheckKeys(const PropertyFiles& files, const VariantSpace& space, Findings* findings) {
    for (const FixedFile& fixed : FixedFiles()) {
        const auto file = files.find(fixed.path);
        if (fixed.property == nullptr || file == files.end()) continue;
        for (int axis = kFirstKeyAxis; axis < kAxisCount; ++axis) {
            const std::set<std::string>& keys = space.values[axis];
            if (fixed.property != std::string_view(KeyOf(axis).property) || keys.empty()) continue;
            if (IsReferred(files, fixed.property)) continue;
            for (const PropertyLine& line : file->second.lines) {
                const std::string key(line.value);
                if (line.name != fixed.property || key.empty() || keys.count(key) != 0) continue;
                findings->Add(kUnknownKey, fixed.path, line.number,
                              "no partition root has a directory " +
                                      QuotedShort(std::string(kKeysDirectory) + "/" + key + "/" +
                                                  KeyOf(axis).leaf) +
                                      WhichThereAre(key, {keys.begin(), keys.end()}));
            }
        }
    }
}

void CheckMarketNamesPlace(const FoundFile& place, Findings* findings) {
    if (Basename(place.path) != kMarketNames || place.is_directory()) return;
    constexpr char kProduct[] = "/my_product/cust/";
    std::string path = place.path;
    if (StartsWith(path, "/mnt/vendor/")) path.erase(0, sizeof("/mnt/vendor") - 1);
    const std::string end = std::string("/etc/") + kMarketNames;
    if (StartsWith(path, kProduct) && EndsWith(path, end)) {
        const size_t start = sizeof(kProduct) - 2;
        const std::string region = path.substr(start, path.size() - start - end.size());
        if (region.find('/', 1) == std::string::npos) return;
    }
    findings->Add(kMisplacedMarketName, place.path,
                  "the library looks for the market name only in "
                  "/my_product/cust/REGION/etc/devicename.cfg");
}

}  // namespace

void CheckNames(const std::vector<FoundFile>& places, const Coverage* coverage,
                const PropertyFiles& files, Findings* findings) {
    MisspeltFiles misspelt(places, coverage, findings);
    for (const FoundFile& place : places) {
        misspelt.Check(place);
        CheckMarketNamesPlace(place, findings);
    }
    CheckBrand(files, findings);
    if (coverage == nullptr) return;
    CheckRegion(files, coverage->space(), findings);
    CheckKeys(files, coverage->space(), findings);
}

}  // namespace extprop
