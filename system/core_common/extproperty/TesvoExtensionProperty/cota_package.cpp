// The properties of a carrier package, and the package's bind mount over the carrier partition.

#include <android-base/logging.h>
#include <android-base/strings.h>

#include "cota.h"
#include "names.h"

namespace android {
namespace init {

namespace {

constexpr char kMountInfoMissing[] = "not valid cota mount info file: ";
constexpr char kMountInfoLoadFailed[] = "cota info prop load failed:";

// QUIRK: "persisit." letter for letter; names that begin with "persist." are not forwarded.
PropertyMap forwardedProperties(const PropertyMap& info) {
    PropertyMap forwarded;
    for (const auto& [name, value] : info) {
        if (isSystemProperty(name) || base::StartsWith(name, "persisit.")) {
            forwarded.emplace(name, value);
        }
    }
    return forwarded;
}

// Returns where the package can be read: its bind point or, if the bind mount fails, its source.
std::string bindPackage(const std::string& source, const std::string& bindPoint) {
    if (bindPoint == source) return source;
    if (int result = bindCotaDirectory(source, bindPoint); result != 0) {
        LOG(ERROR) << "cota bindAndLoadCotaOverrideProperties bind failed: " << result;
        return source;
    }
    return bindPoint;
}

// QUIRK: after a bind that succeeded the path is bound again; after one that failed it is not.
bool wantsMediaBind(const std::string& path) {
    const std::string lastResult = readProperty(kMediaBindResult);
    return !path.empty() && (lastResult.empty() || lastResult == "0");
}

}  // namespace

void copyBigballIdentity(PropertyMap* properties) {
    if (auto date = properties->find("ro.tesvo.image.my_bigball.date.utc");
        date != properties->end()) {
        properties->emplace("ro.tesvo.image.my_carrier.date.utc", date->second);
    }
    if (auto version = properties->find("ro.tesvo.image.my_bigball.version_name");
        version != properties->end()) {
        properties->emplace(kCarrierVersionName, version->second);
        properties->erase(version);
    }
}

bool findMountedCota(std::string* root) {
    *root = readProperty(kCotaRoot, "0");
    return readProperty(kCotaVerified, "0") == "1" && *root != "0";
}

void InitExtensionPropertyImpl::loadCotaOverrideProperties(PropertyCallback callback) {
    std::string root;
    if (!findMountedCota(&root)) return;
    PropertyMap properties;
    loadExtensionPartitionProperties(root, &properties);
    loadExtensionPartitionSimswitchProperties(root, &properties);
    copyBigballIdentity(&properties);
    if (!properties.empty()) callback(0, properties);
    loadSpecialProperties(callback);
}

void InitExtensionPropertyImpl::bindAndLoadCotaOverrideProperties(PropertyCallback callback) {
    PropertyMap info;
    if (!takeOneShotFile(kCotaMountInfoFile, kMountInfoMissing, kMountInfoLoadFailed, &info)) {
        return;
    }
    // QUIRK: forwards the package's root as given in the file, wherever the package is read from.
    const PropertyMap forwarded = forwardedProperties(info);
    const std::string source = valueOf(info, kCotaRoot);
    if (valueOf(info, kCotaVerified) != "1" || !base::StartsWith(source, "/")) {
        if (!forwarded.empty()) callback(0, forwarded);
        return;
    }

    const std::string root = bindPackage(source, valueOf(info, kBindPoint, kCarrierRoot));
    PropertyMap properties;
    for (const std::string& partition : {root, root + "/cust"}) {
        loadExtensionPartitionProperties(partition, &properties);
        loadExtensionPartitionSimswitchProperties(partition, &properties);
    }
    const bool isCarrier = root == kCarrierRoot;
    if (isCarrier) copyBigballIdentity(&properties);

    if (!properties.empty()) {
        callback(0, properties);
        const std::string mediaPath = readProperty("persist.sys.customize.media");
        if (properties.count(kCustomMediaSource) != 0 && wantsMediaBind(mediaPath)) {
            bindCustomizeMediaPath(mediaPath.c_str());
        }
    }
    if (!forwarded.empty()) callback(0, forwarded);
    if (isCarrier) {
        loadSpecialProperties(callback);
        loadCustomizeDisplayVersionName(callback);
    }
}

void InitExtensionPropertyImpl::updateCotaInfoProperties(PropertyCallback callback) {
    PropertyMap info;
    if (!takeOneShotFile(kCotaMountInfoFile, kMountInfoMissing, kMountInfoLoadFailed, &info)) {
        return;
    }
    if (info.empty()) return;
    callback(0, info);
    loadCustomizeDisplayVersionName(callback);
}

void InitExtensionPropertyImpl::loadCotaConfigureModuleProperties(std::string moduleRoot,
                                                                  PropertyCallback callback) {
    PropertyMap properties;
    loadExtensionPartitionProperties(moduleRoot, &properties);
    loadExtensionPartitionSimswitchProperties(moduleRoot, &properties);
    copyBigballIdentity(&properties);
    if (!properties.empty()) callback(0, properties);
    loadSpecialProperties(callback);
    loadCustomizeDisplayVersionName(callback);
}

}  // namespace init
}  // namespace android
