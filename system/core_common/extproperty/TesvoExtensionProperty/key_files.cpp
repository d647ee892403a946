// The files that keep the switch keys on the reserve and the data partition, the migration from the
// stores of older software, and the conversion of files in the old one-line format.

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/unique_fd.h>

#include "../InitExtensionPropertyImpl.h"
#include "../utils.h"
#include "names.h"

namespace android {
namespace init {

namespace {

constexpr char kSwitchOperator[] = "sys.tesvo.switch.operator";
constexpr char kFlashBackCompany[] = "ro.sys.customize.flashback.company";

constexpr char kSwitchKeyFailed[] = "sim switch key property failed:";
constexpr char kRegionKeyFailed[] = "region switch key property failed:";

constexpr uid_t kSystemUser = 1000;

bool exists(const char* path) {
    return access(path, F_OK) == 0;
}

bool opensForReading(const char* path) {
    return base::unique_fd(TEMP_FAILURE_RETRY(open(path, O_RDONLY | O_CLOEXEC))).ok();
}

bool loadFile(const char* path, const char* failure, PropertyMap* props) {
    if (load_properties_from_file_without_se(path, nullptr, props)) return true;
    LOG(ERROR) << failure << path;
    return false;
}

void giveToSystem(const char* path) {
    if (lchown(path, kSystemUser, kSystemUser) != 0) LOG(ERROR) << "Unable to chown file " << path;
}

std::string propertyLine(const char* name, const std::string& value) {
    return name + ("=" + value + "\n");
}

bool holds(const PropertyMap& props, const char* name, const char* value) {
    auto entry = props.find(name);
    return entry != props.end() && entry->second == value;
}

// Copies the property's value into `*key`. Returns false if the map does not hold it.
bool takeKey(const PropertyMap& props, const char* name, std::string* key) {
    auto entry = props.find(name);
    if (entry == props.end()) return false;
    *key = entry->second;
    return true;
}

// Returns whether the keys of older software were migrated already.
bool loadConvertMark(PropertyMap* props) {
    if (exists(kConvertFile)) {
        loadFile(kConvertFile, "sim switch convert property load failed:", props);
    }
    return holds(*props, kSimSwitchConvert, "true");
}

void loadOldActionFile(PropertyMap* props) {
    if (exists(kOldActionFile)) {
        LOG(INFO) << "read ssv file";
        loadFile(kOldActionFile, "read ssv failed :", props);
        return;
    }
    const std::string status = readProperty("persist.sys.payjoy.status_change", "0");
    const std::string switchOperator = readProperty(kSwitchOperator);
    LOG(INFO) << "payjoy_status :" << status;
    LOG(INFO) << "payjoy_status_operator :" << switchOperator;
    if (status == "1" && switchOperator.empty()) {
        writeKeyFile(kOldActionFile, propertyLine(kSwitchOperator, "payjoy"),
                     "Unable to write ssv_file ");
    }
    if (exists(kOldActionFile)) {
        LOG(INFO) << "re-read ssv file";
        loadFile(kOldActionFile, "re-read ssv failed :", props);
    }
}

// Writes the first-switch file from the key of an older store. The caller loads that file later.
void migrateOldKeys(const PropertyMap& props, std::string nvKey, std::string ssvKey) {
    std::string firstKey;
    load_convert_first_key(&firstKey, &nvKey, &ssvKey);
    if (firstKey.empty()) return;

    if (!exists(kReserveKeyDir)) {
        LOG(INFO) << "there is no ssv dir";
        if (createDirectory(kReserveKeyDir) == 0) LOG(INFO) << "create ssv dir: " << kReserveKeyDir;
    }
    // The mark is written only after the key, so that the next boot tries again if that fails.
    if (writeKeyFile(kReserveFirstFile, propertyLine(kSimSwitchFirst, firstKey),
                     "Unable to write sim_action_first_file ")) {
        // QUIRK: the blank before the value; the loader drops it when it reads the mark.
        writeKeyFile(kConvertFile, propertyLine(kSimSwitchConvert, " true"),
                     "Unable to write sim_switch_convert_file ");
    }
    if (!exists(kNoneClearFile) && holds(props, kNoneClearSwitchFirst, "true")) {
        writeKeyFile(kNoneClearFile, "1", "Unable to write first_switch_none_clear ");
    }
    for (const char* path : {kReserveFirstFile, kNoneClearFile, kConvertFile}) {
        if (exists(path)) giveToSystem(path);
    }
}

// One of the reserve partition's key files.
// QUIRK: some log texts end in a blank or colon and others do not; log lines keep this exact form.
struct ReserveKeyFile {
    const char* path;
    const char* property;
    bool foundByOpening;
    const char* found;
    const char* loadFailed;
    const char* readFailed;
    const char* converting;
    const char* writeFailed;
};

constexpr ReserveKeyFile kReserveFirst = {
        kReserveFirstFile,
        kSimSwitchFirst,
        false,
        "sim_switch_first_file is exist!!!",
        kSwitchKeyFailed,
        "read sim switch first file failed :",
        "Convert tmp_first_key to SIM_SWITCH_FIRST_PROPERTY",
        "Unable to write sim_switch_first_file",
};
constexpr ReserveKeyFile kReserveCurrent = {
        kReserveCurrentFile,
        kSimSwitchCurrent,
        false,
        "sim_switch_current_file is exist!!!",
        kSwitchKeyFailed,
        "read sim switch current file failed :",
        "Convert tmp_current_key to SIM_SWITCH_CURRENT_PROPERTY",
        "Unable to write sim_switch_current_file",
};
constexpr ReserveKeyFile kReserveRegion = {
        kReserveRegionFile,
        kRegionSwitchFirst,
        true,
        "region_switch_file exists!!!",
        kRegionKeyFailed,
        kReserveFirst.readFailed,  // QUIRK: the first file's text
        "Convert tmp_region_key to REGION_SWITCH_PROPERTY",
        "Unable to write region_switch_file",
};

// Loads one key file into `*props` and its key into `*key`. A file in the old format, which is the
// bare key, is rewritten.
void loadReserveKeyFile(const ReserveKeyFile& file, PropertyMap* props, std::string* key) {
    if (!(file.foundByOpening ? opensForReading(file.path) : exists(file.path))) return;
    LOG(INFO) << file.found;
    if (!loadFile(file.path, file.loadFailed, props)) return;
    if (takeKey(*props, file.property, key)) return;

    std::string oldKey;
    if (!base::ReadFileToString(file.path, &oldKey)) LOG(ERROR) << file.readFailed << file.path;
    if (oldKey.empty()) return;
    LOG(ERROR) << file.converting;  // QUIRK: a success, at this severity
    props->emplace(file.property, oldKey);
    // QUIRK: the key is used and written as it was read, with its line end.
    writeKeyFile(file.path, propertyLine(file.property, oldKey), file.writeFailed);
    *key = oldKey;
    if (file.foundByOpening || exists(file.path)) giveToSystem(file.path);
}

void loadDataRegionFile(PropertyMap* props) {
    if (exists(kDataRegionFile)) {
        loadFile(kDataRegionFile, kRegionKeyFailed, props);
        return;
    }
    const std::string region = readProperty(kRemoveRegionApk);
    if (region.empty() || region == "false") return;
    props->emplace(kRegionSwitchFirst, region);
    writeKeyFile(kDataRegionFile, propertyLine(kRegionSwitchFirst, region),
                 "Unable to write region_switch_file_data_path ");
}

void loadFlashBackFile(PropertyMap* props) {
    if (exists(kFlashBackFile)) {
        loadFile(kFlashBackFile, "flash back property failed:", props);
    } else if (readProperty(kFlashBackCompany).empty()) {
        props->emplace(kFlashBackCompany, "invalid");
    }
}

}  // namespace

bool writeKeyFile(const char* path, const std::string& content, const char* failure) {
    struct stat status;
    const bool isNew = lstat(path, &status) != 0 && errno == ENOENT;
    auto written = WriteFile(path, content);
    if (written.ok()) return true;
    LOG(ERROR) << failure << written.error();
    // A file that was only created would be read as an empty key on every later boot.
    if (isNew) unlink(path);
    return false;
}

void InitExtensionPropertyImpl::loadExtensionSimswitchKeyInfo(PropertyMap* props) {
    if (nvKey.empty() && nvTargetKey.empty()) load_old_nv_key(&nvKey, &nvTargetKey);
    // Read before the old action file is loaded, which may hold another mark.
    const bool migrated = loadConvertMark(props);
    loadOldActionFile(props);
    if (!migrated && !exists(kReserveFirstFile)) {
        if (operatorPair.empty()) read_old_ssv_key(&operatorPair);
        migrateOldKeys(*props, nvKey, operatorPair);
    }

    loadReserveKeyFile(kReserveFirst, props, &simSwitchFirst);
    loadReserveKeyFile(kReserveCurrent, props, &simSwitchCurrent);
    loadReserveKeyFile(kReserveRegion, props, &regionSwitchFirst);

    // The files on the data partition are loaded later and so override those on the reserve
    // partition.
    if (exists(kDataCurrentFile)) loadFile(kDataCurrentFile, kSwitchKeyFailed, props);
    if (exists(kReserveCommonFile)) {
        loadFile(kReserveCommonFile, "reboot count key property failed:", props);
    }
    if (exists(kDataFirstFile)) loadFile(kDataFirstFile, kSwitchKeyFailed, props);
    loadDataRegionFile(props);
    if (exists(kDataCommonFile) && loadFile(kDataCommonFile, kSwitchKeyFailed, props)) {
        takeKey(*props, kChannelInfo, &channelInfo);
    }
    if (exists(kForceConnectFile)) {
        loadFile(kForceConnectFile, "force connect internet property failed:", props);
    }
    loadFlashBackFile(props);

    takeKey(*props, kSimSwitchFirst, &simSwitchFirst);
    takeKey(*props, kSimSwitchCurrent, &simSwitchCurrent);
    takeKey(*props, kRegionSwitchFirst, &regionSwitchFirst);
}

}  // namespace init
}  // namespace android
