#include "device/places.h"

#include <algorithm>
#include <set>
#include <string_view>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "TesvoExtensionProperty/commands.h"
#include "TesvoExtensionProperty/cota.h"
#include "TesvoExtensionProperty/names.h"
#include "TesvoExtensionProperty/partitions.h"
#include "nearest.h"

namespace extprop {

using android::base::EndsWith;
using android::base::StartsWith;
using namespace android::init;

const std::vector<FixedFile>& FixedFiles() {
    static const std::vector<FixedFile> files = {
            {kOldActionFile, FileUse::kKeyFile, LoadTrigger::kKeyFiles},
            {kReserveFirstFile, FileUse::kKeyFile, LoadTrigger::kKeyFiles, kSimSwitchFirst},
            {kReserveCurrentFile, FileUse::kKeyFile, LoadTrigger::kKeyFiles, kSimSwitchCurrent},
            {kReserveRegionFile, FileUse::kKeyFile, LoadTrigger::kKeyFiles, kRegionSwitchFirst},
            {kConvertFile, FileUse::kProperties, LoadTrigger::kKeyFiles, kSimSwitchConvert},
            {kReserveCommonFile, FileUse::kProperties, LoadTrigger::kKeyFiles},
            {kForceConnectFile, FileUse::kProperties, LoadTrigger::kKeyFiles},
            {kDataFirstFile, FileUse::kProperties, LoadTrigger::kKeyFiles, kSimSwitchFirst},
            {kDataCurrentFile, FileUse::kProperties, LoadTrigger::kKeyFiles, kSimSwitchCurrent},
            {kDataRegionFile, FileUse::kProperties, LoadTrigger::kKeyFiles, kRegionSwitchFirst},
            {kFlashBackFile, FileUse::kProperties, LoadTrigger::kKeyFiles},
            {kDataCommonFile, FileUse::kProperties, LoadTrigger::kDataCommon, kChannelInfo},
            {kEmptyAppChannelFile, FileUse::kProperties, LoadTrigger::kEmptyChannel},
            {kCompanyConfig, FileUse::kProperties, LoadTrigger::kCompanyConfig},
            {kCotaMountInfoFile, FileUse::kCotaMessage, LoadTrigger::kMountInfo},
            {kCotaModuleInfoFile, FileUse::kCotaMessage, LoadTrigger::kModuleInfo},
    };
    return files;
}

std::optional<FileUse> UseOf(const std::string& path) {
    for (const FixedFile& file : FixedFiles()) {
        if (path == file.path) return file.use;
    }
    for (const char* map : {kSwitchKeyMap, kNvFlagMap}) {
        if (EndsWith(path, std::string("/etc/") + map)) return FileUse::kMapping;
    }
    if (EndsWith(path, "/devicename.cfg")) return FileUse::kDeviceName;
    if (EndsWith(path, ".prop")) return FileUse::kProperties;
    return std::nullopt;
}

const std::vector<SwitchKey>& SwitchKeys() {
    static const std::vector<SwitchKey> keys = [] {
        std::vector<SwitchKey> found;
        for (const char* property :
             {kSimSwitchFirst, kSimSwitchCurrent, kChannelInfo, kRegionSwitchFirst}) {
            for (const SwitchKeyCommand& known : kSwitchKeyCommands) {
                if (std::string_view(property) != known.property) continue;
                found.push_back({known.property, known.leaf, known.command, known.dataFile});
            }
        }
        return found;
    }();
    return keys;
}

bool IsOfSwitchKey(const std::string& path) {
    const std::string directory = android::base::Dirname(path);
    const std::string leaf = android::base::Basename(directory);
    for (const SwitchKey& key : SwitchKeys()) {
        if (leaf != key.leaf) continue;
        return android::base::Dirname(directory).find(std::string("/") + kKeysDirectory + "/") !=
               std::string::npos;
    }
    return false;
}

std::vector<std::string> AddedRoots(const std::string& brand_code, const std::string& region) {
    const std::vector<std::string> others = partitionRoots("", "");
    std::vector<std::string> added;
    for (const std::string& root : partitionRoots(brand_code, region)) {
        if (std::find(others.begin(), others.end(), root) == others.end()) added.push_back(root);
    }
    return added;
}

const std::vector<std::string>& RegionsDirectories() {
    static const std::vector<std::string> directories = [] {
        constexpr char kAny[] = "any-region";
        std::vector<std::string> found;
        for (const std::string& root : AddedRoots("", kAny)) {
            if (android::base::Basename(root) == kAny)
                found.push_back(android::base::Dirname(root));
        }
        return found;
    }();
    return directories;
}

namespace {

constexpr char kVendorMounts[] = "/mnt/vendor/";
constexpr char kOdm[] = "/odm";

// What init loads by itself from the one partition that it shares with the library.
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

}  // namespace

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

bool IsSystems(const std::string& path) {
    for (const char* file : kSystemsFiles) {
        if (path == file) return true;
    }
    return KindOfPartition(PartitionOf(path)).kind == PartitionKind::kSystems &&
           !LiesWithKeyFiles(path);
}

}  // namespace extprop
