// The boot sequence that init runs once the persistent properties are loaded.

#include <android-base/strings.h>

#include "../InitExtensionPropertyImpl.h"
#include "names.h"

namespace android {
namespace init {

namespace {

void insertIfSet(const char* name, PropertyMap* properties) {
    if (std::string value = readProperty(name); !value.empty()) properties->emplace(name, value);
}

void removeReadOnly(PropertyMap* properties) {
    for (auto entry = properties->begin(); entry != properties->end();) {
        entry = base::StartsWith(entry->first, "ro.") ? properties->erase(entry) : std::next(entry);
    }
}

}  // namespace

int InitExtensionPropertyImpl::loadPersistOverrideProperties(PropertyCallback callback) {
    checkAndRestoreChannelInfo(callback);
    if (settleSwitchKeys(callback)) loadSwitchOverlay(callback);
    updateCompanyProperties(callback);
    loadSpecialProperties(callback);
    loadDataSpecialProperties(callback);
    forceInternetConnection(callback);
    updateMarketName(callback);
    return 0;
}

bool InitExtensionPropertyImpl::settleSwitchKeys(PropertyCallback callback) {
    const bool firstPass = nvKey.empty() && simSwitchFirst.empty() && simSwitchCurrent.empty() &&
                           nvTargetKey.empty() && regionSwitchFirst.empty();
    if (firstPass) {
        PropertyMap properties;
        insertIfSet(kRegionSwitchFirst, &properties);
        loadSwitchKeys(&properties, callback);
    }

    const std::string pair = readOperatorPair();
    if (!operatorPair.empty() || pair.empty()) return firstPass;
    operatorPair = pair;
    if (simSwitchFirst.empty()) {
        // QUIRK: unlike the first time, the region's key is not among the properties.
        PropertyMap properties;
        loadSwitchKeys(&properties, callback);
    }
    return true;
}

void InitExtensionPropertyImpl::loadSwitchKeys(PropertyMap* properties, PropertyCallback callback) {
    for (const char* name : {kNoneClearSwitchFirst, kSimSwitchFirst, kSimSwitchConvert}) {
        insertIfSet(name, properties);
    }
    loadExtensionSimswitchKeyInfo(properties);
    if (!properties->empty()) callback(0, *properties);
}

void InitExtensionPropertyImpl::loadSwitchOverlay(PropertyCallback callback) {
    PropertyMap properties;
    for (const std::string& root : PartitionSearchList) {
        loadExtensionPartitionSimswitchProperties(root, &properties);
    }
    if (!properties.empty()) callback(0, properties);
}

void InitExtensionPropertyImpl::updateCompanyProperties(PropertyCallback callback) {
    const std::string imageDate = readProperty(kCompanyDate);
    if (imageDate == readProperty(kCompanyDateApplied)) return;
    PropertyMap properties;
    loadExtensionPartitionProperties(kCompanyRoot, &properties);
    loadExtensionPartitionSimswitchProperties(kCompanyRoot, &properties);
    removeReadOnly(&properties);
    if (!properties.empty()) callback(1, properties);
    // Handed over even if nothing else is: init keeps this date until the next image.
    callback(2, {{kCompanyDateApplied, imageDate}});
}

}  // namespace init
}  // namespace android
