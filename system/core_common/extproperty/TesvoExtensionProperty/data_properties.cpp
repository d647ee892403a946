// The property files that the system keeps on the data partition, and the forced internet
// connection.

#include <unistd.h>

#include <android-base/logging.h>

#include "../InitExtensionPropertyImpl.h"
#include "../utils.h"
#include "names.h"

namespace android {
namespace init {

namespace {

struct DataFile {
    const char* path;
    const char* failure;
};

constexpr DataFile kDataFiles[] = {
        {kEmptyAppChannelFile, "reboot empty appchanel property failed:"},
        {kDataCommonFile, "reboot data common property failed:"},
};

constexpr char kForceConnect[] = "ro.tesvo.internet.force.connect";

}  // namespace

void loadDataSpecialProperties(PropertyCallback callback) {
    // QUIRK: the map is shared, so the second hand-over holds the first file's properties again.
    PropertyMap properties;
    for (const DataFile& file : kDataFiles) {
        if (access(file.path, F_OK) != 0) continue;
        if (!load_properties_from_file_without_se(file.path, nullptr, &properties)) {
            LOG(ERROR) << file.failure << file.path;
        }
        callback(0, properties);
    }
}

void forceInternetConnection(PropertyCallback callback) {
    if (readProperty(kEmergencyShutdown, "0") != "1") return;
    if (readProperty("ro.tesvo.internet.whether.force.connect") != "1") return;
    if (!readProperty(kForceConnect).empty()) return;
    writeKeyFile(kForceConnectFile, std::string(kForceConnect) + "=1\n",
                 "Unable to write force_connect_internet_prop_file_path ");
    callback(0, {{kForceConnect, "1"}});
}

}  // namespace init
}  // namespace android
