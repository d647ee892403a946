#include "explain/moments.h"

#include <algorithm>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "TesvoExtensionProperty/cota.h"
#include "TesvoExtensionProperty/names.h"
#include "TesvoExtensionProperty/partitions.h"
#include "device/property_lines.h"
#include "nearest.h"

namespace extprop {

namespace {

using namespace android::init;
using android::base::StartsWith;

constexpr char kVendorMounts[] = "/mnt/vendor/";
constexpr char kOdm[] = "/odm";

// What init loads by itself of the one partition that it shares with the library.
constexpr const char* kSystemsFiles[] = {"/odm/etc/build.prop", "/odm/default.prop"};

// A partition of the system whose name is nearly one of the library's.
constexpr char kOem[] = "/oem";

// The names of the partitions below /mnt/vendor, such as "my_region".
const std::vector<std::string>& PartitionNames() {
    static const std::vector<std::string> names = [] {
        std::set<std::string> unique;
        for (const std::string& root : partitionRoots("", "")) {
            if (!StartsWith(root, kVendorMounts)) continue;
            const size_t start = sizeof(kVendorMounts) - 1;
            unique.insert(root.substr(start, root.find('/', start) - start));
        }
        return std::vector<std::string>(unique.begin(), unique.end());
    }();
    return names;
}

bool LiesWithKeyFiles(const std::string& path) {
    const std::string directory = android::base::Dirname(path);
    for (const FixedFile& file : FixedFiles()) {
        if (file.path != std::string(kCompanyConfig) &&
            directory == android::base::Dirname(file.path)) {
            return true;
        }
    }
    return false;
}

bool IsSystems(const std::string& path) {
    for (const char* file : kSystemsFiles) {
        if (path == file) return true;
    }
    return KindOfPartition(PartitionOf(path)).kind == PartitionKind::kSystems &&
           !LiesWithKeyFiles(path);
}

// Whether a carrier package is mounted there by default.
bool IsPackageRoot(const std::string& root) {
    return root == kCarrierRoot || root == kCarrierRoot + std::string("/cust");
}

unsigned MomentsOfReading(const Reading& reading) {
    switch (reading.root) {
        case Reading::kCompany:
            return kCompany;
        case Reading::kPackage:
        case Reading::kModule:
            return kAnyTime;
        case Reading::kElsewhere:
            return IsPackageRoot(reading.place) ? kAnyTime : kUnsearched;
        case Reading::kListed:
            break;
    }
    switch (reading.occasion) {
        case Occasion::kPartition:
            return kEarly;
        case Occasion::kKeyDirectory:
        case Occasion::kOldKeyFile:
            return kOverlay;
        case Occasion::kNvMap:
        case Occasion::kFlagMap:
        case Occasion::kKeyFiles:
            return kKeyFiles;
        case Occasion::kDataCommon:
            return kKeyFiles | kData;
        case Occasion::kEmptyChannel:
            return kData;
        case Occasion::kCompanyConfig:
        case Occasion::kMountInfo:
        case Occasion::kModuleInfo:
            return kAnyTime;
    }
    return 0;
}

// Spreads the moments of the files over those that they import.
class Spreader {
  public:
    explicit Spreader(const Survey& survey) : survey_(survey) {
        for (const SurveyedFile& file : survey.files) files_[file.path] = &file;
    }

    std::map<std::string, FileMoments> Spread() {
        for (const SurveyedFile& file : survey_.files) {
            unsigned moments = IsSystems(file.path) ? unsigned{kSystems} : 0;
            for (const Reading& reading : file.readings) moments |= MomentsOfReading(reading);
            // Any root's own file has a step of its own, but only a package's is known to have one.
            if (android::base::Basename(file.path) == "build.prop" &&
                IsPackageRoot(android::base::Dirname(file.path))) {
                moments |= kAnyTime;
            }
            if (!file.source) AddWhole(file.path, moments);
        }
        while (!waiting_.empty()) {
            const std::string path = *waiting_.begin();
            waiting_.erase(waiting_.begin());
            const unsigned moments = moments_[path].whole;
            for (const SurveyedImport& import : files_[path]->imports) Follow(import, moments);
        }
        return std::move(moments_);
    }

  private:
    void Follow(const SurveyedImport& import, unsigned moments) {
        for (const auto& target : import.targets) Add(target.second, import.filter, moments);
        for (const std::string& path : PathsBehind(import.text)) Add(path, import.filter, moments);
    }

    // Returns where the import's references may lead: a value with slashes leads farther than the
    // survey follows it.
    const std::vector<std::string>& PathsBehind(const std::string& text) {
        auto [known, is_new] = behind_.try_emplace(text);
        const size_t dollar = text.find('$');
        if (!is_new || dollar == std::string::npos) return known->second;
        const std::string before = text.substr(0, dollar);
        for (auto file = files_.lower_bound(before);
             file != files_.end() && StartsWith(file->first, before); ++file) {
            if (MayLeadTo(text, file->first)) known->second.push_back(file->first);
        }
        return known->second;
    }

    void Add(const std::string& path, const std::string& filter, unsigned moments) {
        if (filter.empty()) {
            AddWhole(path, moments);
        } else {
            moments_[path].filtered[filter] |= moments;
        }
    }

    void AddWhole(const std::string& path, unsigned moments) {
        if (moments == 0 || files_.count(path) == 0) return;
        unsigned& known = moments_[path].whole;
        if ((known | moments) == known) return;
        known |= moments;
        waiting_.insert(path);
    }

    const Survey& survey_;
    std::map<std::string, const SurveyedFile*> files_;
    std::map<std::string, std::vector<std::string>> behind_;  // by an import's text
    std::map<std::string, FileMoments> moments_;
    std::set<std::string> waiting_;
};

}  // namespace

unsigned FileMoments::Of(const std::string& name) const {
    unsigned moments = whole;
    for (const auto& [filter, those] : filtered) {
        if (PassesFilter(name, filter)) moments |= those;
    }
    return moments;
}

std::map<std::string, FileMoments> MomentsOf(const Survey& survey) {
    return Spreader(survey).Spread();
}

std::string PartitionOf(const std::string& path) {
    const size_t start = StartsWith(path, kVendorMounts) ? sizeof(kVendorMounts) - 1 : 1;
    return path.substr(0, path.find('/', start));
}

PartitionKind KindOfPartition(const std::string& directory) {
    constexpr size_t kNear = 2;
    const std::string name = android::base::Basename(directory);
    const std::vector<std::string>& names = PartitionNames();
    if (directory == kOdm || std::find(names.begin(), names.end(), name) != names.end()) {
        return {PartitionKind::kKnown, ""};
    }
    if (const std::string near = Nearest(name, names, kNear); !near.empty()) {
        return {PartitionKind::kMisspelt, kVendorMounts + near};
    }
    if (directory != kOem && !Nearest(directory, {kOdm}, 1).empty()) {
        return {PartitionKind::kMisspelt, kOdm};
    }
    return {StartsWith(name, "my_") ? PartitionKind::kAlike : PartitionKind::kSystems, ""};
}

}  // namespace extprop
