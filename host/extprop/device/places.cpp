#include "device/places.h"

#include <algorithm>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "TesvoExtensionProperty/cota.h"
#include "TesvoExtensionProperty/names.h"
#include "TesvoExtensionProperty/partitions.h"

namespace extprop {

using android::base::EndsWith;
using namespace android::init;

const std::vector<FixedFile>& FixedFiles() {
    static const std::vector<FixedFile> files = {
            {kOldActionFile, FileUse::kKeyFile, Occasion::kKeyFiles},
            {kReserveFirstFile, FileUse::kKeyFile, Occasion::kKeyFiles, kSimSwitchFirst},
            {kReserveCurrentFile, FileUse::kKeyFile, Occasion::kKeyFiles, kSimSwitchCurrent},
            {kReserveRegionFile, FileUse::kKeyFile, Occasion::kKeyFiles, kRegionSwitchFirst},
            {kConvertFile, FileUse::kProperties, Occasion::kKeyFiles, kSimSwitchConvert},
            {kReserveCommonFile, FileUse::kProperties, Occasion::kKeyFiles},
            {kForceConnectFile, FileUse::kProperties, Occasion::kKeyFiles},
            {kDataFirstFile, FileUse::kProperties, Occasion::kKeyFiles, kSimSwitchFirst},
            {kDataCurrentFile, FileUse::kProperties, Occasion::kKeyFiles, kSimSwitchCurrent},
            {kDataRegionFile, FileUse::kProperties, Occasion::kKeyFiles, kRegionSwitchFirst},
            {kFlashBackFile, FileUse::kProperties, Occasion::kKeyFiles},
            {kDataCommonFile, FileUse::kProperties, Occasion::kDataCommon, kChannelInfo},
            {kEmptyAppChannelFile, FileUse::kProperties, Occasion::kEmptyChannel},
            {kCompanyConfig, FileUse::kProperties, Occasion::kCompanyConfig},
            {kCotaMountInfoFile, FileUse::kCotaMessage, Occasion::kMountInfo},
            {kCotaModuleInfoFile, FileUse::kCotaMessage, Occasion::kModuleInfo},
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
    static const std::vector<SwitchKey> keys = {
            {kSimSwitchFirst, kFirstTimeLeaf, "simSwitchFirst", kDataFirstFile},
            {kSimSwitchCurrent, kCurrentTimeLeaf, "simSwitchCurrent", kDataCurrentFile},
            {kChannelInfo, kCarrierChannelLeaf, "switchCarrierChannel", kDataCommonFile},
            {kRegionSwitchFirst, kRegionLeaf, "regionSwitch", kDataRegionFile},
    };
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

const std::string& RegionsDirectory() {
    static const std::string directory = android::base::Dirname(AddedRoots("", "any").front());
    return directory;
}

}  // namespace extprop
