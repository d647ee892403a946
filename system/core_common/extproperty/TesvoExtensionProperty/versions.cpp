// The version strings that are derived from the images' version names.

#include <android-base/logging.h>
#include <android-base/strings.h>

#include "../InitExtensionPropertyImpl.h"
#include "names.h"

namespace android {
namespace init {

namespace {

constexpr char kDisplayVersionName[] = "ro.tesvo.customize.display.version_name";

// Returns what follows the last "-", or the whole name if it has no "-" after its first character.
std::string versionTail(const std::string& versionName) {
    size_t dash = versionName.rfind('-');
    if (dash == std::string::npos || dash == 0) return versionName;
    return versionName.substr(dash + 1);
}

void loadExportVersion(PropertyCallback callback) {
    const std::string suffix = readProperty("ro.vendor.tesvo.version_suffix");
    if (suffix.empty()) return;
    std::string version = readProperty("ro.build.display.id");
    size_t underscore = version.find('_');
    if (underscore == std::string::npos || underscore == 0) return;
    version.insert(underscore, suffix);
    callback(0, {{"ro.vendor.tesvo.exp.version", version}});
}

void loadDisplayVersion(PropertyCallback callback) {
    if (!readProperty(kDisplayVersionName).empty()) return;
    std::string versionName = readProperty(kCarrierVersionName);
    if (versionName.empty()) versionName = readProperty("ro.tesvo.image.my_region.version_name");
    if (versionName.empty()) return;
    const std::string version = versionTail(versionName);
    // QUIRK: misspelt like other log texts of the library; people search the logs for them.
    LOG(INFO) << "customize dispaly version " << version;
    if (version.empty()) return;
    callback(0, {{kDisplayVersionName, version}});
}

// Moves the last field of `*name`, which follows its last "_", to `*field` and drops the "_".
// Changes neither and returns false if there is no "_" after the first character.
bool takeLastField(std::string* name, std::string* field) {
    size_t underscore = name->rfind('_');
    if (underscore == std::string::npos || underscore == 0) return false;
    *field = name->substr(underscore + 1);
    name->erase(underscore);
    return true;
}

// Appends the fields of the carrier package's version name, such as "X_13_COTA_5", to the display
// version.
void appendCotaVersion(std::string name, std::string* displayVersion) {
    std::string cotaVersion;
    if (!takeLastField(&name, &cotaVersion)) return;
    if (cotaVersion.size() < 3) cotaVersion.insert(0, 3 - cotaVersion.size(), '0');

    std::string cotaType = "P";
    std::string androidVersion = "T";
    if (std::string mark; takeLastField(&name, &mark)) {
        if (mark == "COTA") cotaType = "CT";
        takeLastField(&name, &androidVersion);
    }

    if (!androidVersion.empty()) {
        if (base::EndsWith(*displayVersion, "PM") || base::EndsWith(*displayVersion, "CT")) {
            displayVersion->replace(displayVersion->size() - 2, 2, cotaType);
        }
        *displayVersion += "_" + androidVersion + cotaVersion;
    }
    LOG(INFO) << "cota type " << cotaType << " android version: " << androidVersion
              << " cota version: " << cotaVersion << " display version: " << *displayVersion;
}

}  // namespace

void loadSpecialProperties(PropertyCallback callback) {
    loadExportVersion(callback);
    loadDisplayVersion(callback);
}

void loadCustomizeDisplayVersionName(PropertyCallback callback) {
    std::string displayVersion = readProperty(kDisplayVersionName);
    if (displayVersion.empty()) return;
    const std::string carrierVersion = readProperty(kCarrierVersionName);
    if (!carrierVersion.empty()) {
        LOG(INFO) << "carrier version " << carrierVersion;
        displayVersion = versionTail(carrierVersion);
    }
    if (displayVersion.empty()) return;
    appendCotaVersion(readProperty("ro.build.cota.version_name"), &displayVersion);
    callback(0, {{kDisplayVersionName, displayVersion}});
}

}  // namespace init
}  // namespace android
