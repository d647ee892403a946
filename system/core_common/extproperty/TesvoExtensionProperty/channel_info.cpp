// The reset of a sales channel's customisation after an emergency shutdown.

#include <fcntl.h>
#include <unistd.h>

#include <android-base/logging.h>
#include <android-base/unique_fd.h>

#include "../InitExtensionPropertyImpl.h"
#include "names.h"

namespace android {
namespace init {

namespace {

constexpr char kRecopyPreload[] = "persist.sys.recopy.preload.opinstalled";
constexpr char kChannelCountry[] = "persist.sys.channel.country.info";
constexpr char kRemoveCarrierApk[] = "persist.sys.remove.carrier.apk";
constexpr char kRemoveAllRegionApk[] = "persist.sys.remove.region-all.apk";

PropertyMap restoredChannelInfo() {
    PropertyMap properties;
    for (const char* name : {kChannelInfo, kChannelCountry}) {
        if (!readProperty(name).empty()) properties.emplace(name, "");
    }
    constexpr const char* kRemovalFlags[] = {kRemoveRegionApk, kRemoveCarrierApk,
                                             kRemoveAllRegionApk};
    bool anyRemoved = false;
    for (const char* flag : kRemovalFlags) anyRemoved |= !readProperty(flag).empty();
    if (!anyRemoved) {
        properties.emplace(kRecopyPreload, "none");
        return properties;
    }
    for (const char* flag : kRemovalFlags) properties.emplace(flag, "false");
    properties.emplace(kRecopyPreload, "true");
    properties.emplace("persist.sys.reboot.time.count", "0");
    return properties;
}

void removeFile(const char* path) {
    if (unlink(path) != 0) LOG(ERROR) << "unlink() failed for " << path;
}

void removeStateFiles() {
    for (const char* path : {kEmptyAppChannelFile, kReserveCommonFile, kDataCommonFile}) {
        if (access(path, F_OK) == 0) removeFile(path);
    }
    // QUIRK: the region files are deleted only if they can be opened, the others if they exist.
    for (const char* path : {kDataRegionFile, kReserveRegionFile}) {
        base::unique_fd fd(TEMP_FAILURE_RETRY(open(path, O_RDONLY | O_CLOEXEC)));
        if (fd.ok()) removeFile(path);
    }
}

}  // namespace

void checkAndRestoreChannelInfo(PropertyCallback callback) {
    if (readProperty(kEmergencyShutdown, "0") != "1") return;
    if (!readProperty(kRecopyPreload).empty()) return;
    callback(2, restoredChannelInfo());
    removeStateFiles();
}

}  // namespace init
}  // namespace android
