// Whole devices with any files and properties: boots the early and the persist stage until nothing
// changes any more.

#include <dirent.h>
#include <unistd.h>

#include <iterator>

#include <android-base/logging.h>

#include "device.h"

namespace {

using namespace android::init;

constexpr const char* kFiles[] = {
        "/system_ext/etc/build.prop",
        "/mnt/vendor/my_region/build.prop",
        "/mnt/vendor/my_region/global/Q/build.prop",
        "/odm/build.prop",
        "/odm/etc/nvmap.prop",
        "/odm/etc/flags.prop",
        "/odm/etc/build.k.prop",
        "/odm/properties/k/SimSwitchFirstTime/a.prop",
        "/odm/properties/k/SimSwitchCurrentTime/a.prop",
        "/odm/properties/k/regionSwitch/a.prop",
        "/my_company/build.prop",
        "/my_product/cust//etc/devicename.cfg",
        "/sys/block/sda/size",
        "/mnt/vendor/tesvoreserve/radio/exp_operator_switch.config",
        "/mnt/vendor/tesvoreserve/system/ssv/sim_action_file",
        "/mnt/vendor/tesvoreserve/system/ssv/sim_switch_convert_file",
        "/mnt/vendor/tesvoreserve/system/ssv/sim_switch_first_file",
        "/mnt/vendor/tesvoreserve/system/ssv/sim_switch_current_file",
        "/mnt/vendor/tesvoreserve/system/ssv/region_switch_file",
        "/mnt/vendor/tesvoreserve/system/ssv/sim_switch_common_prop_file",
        "/mnt/vendor/tesvoreserve/system/flag/flashback.cfg",
        "/data/system/customize/sim_switch/sim_switch_first_file",
        "/data/system/customize/sim_switch/region_switch_file",
        "/data/system/customize/data_common_prop_file.prop",
        "/data/system/customize/empty_appchannel_prop_file.prop",
};

constexpr const char* kProperties[] = {
        "ro.boot.vxcarrier",
        "ro.none.clear.switch.first",
        "persist.sys.payjoy.status_change",
        "persist.sys.remove.region.apk",
        "persist.sys.911.shutdown",
        "persist.sys.channel.info",
        "persist.sys.tesvo.operator.opta",
        "persist.sys.tesvo.operator.optb",
        "ro.tesvo.internet.whether.force.connect",
        "ro.tesvo.image.my_company.date",
        "dev.mnt.blk.userdata",
};

// The files that the library itself may make, which are removed before the next device.
constexpr const char* kMade[] = {
        "/mnt/vendor/tesvoreserve/system/ssv/first_switch_none_clear",
        "/mnt/vendor/tesvoreserve/system/ssv/force_connect_internet_prop_file",
};

std::string State() {
    std::string state;
    for (const char* path : kFiles) state += fuzz::Get(path) + '\n';
    for (const char* path : kMade) state += fuzz::Get(path) + '\n';
    return state;
}

PropertyMap Boot(const PropertyMap& given) {
    PropertyMap properties = given;
    for (const auto& [name, value] : platform::AllProperties()) {
        if (name.compare(0, 8, "persist.") == 0) properties[name] = value;
    }
    platform::ResetProperties(properties);
    PartitionSearchList.clear();
    InitExtensionPropertyImpl extension;
    PropertyMap early;
    extension.loadExtensionPartitionProperties(&early);
    fuzz::Callback(0, early);
    extension.loadPersistOverrideProperties(fuzz::Callback);
    extension.loadSimSwitchOverrideProperties(fuzz::Callback);
    return platform::AllProperties();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Clear();
    for (const char* path : kFiles) fuzz::Put(path, nullptr);
    for (const char* path : kMade) fuzz::Put(path, nullptr);
    PropertyMap given;
    // The first byte of a part is "A" and on for a file, then for a property; the rest is its
    // content.
    for (const std::string& part : fuzz::Parts(data, size, 0)) {
        if (part.empty()) continue;
        const size_t which =
                static_cast<uint8_t>(part[0] - 'A') % (std::size(kFiles) + std::size(kProperties));
        const std::string text = part.substr(1);
        if (text.find("import ") != std::string::npos) return -1;
        if (which < std::size(kFiles)) {
            fuzz::Put(kFiles[which], text);
        } else {
            given[kProperties[which - std::size(kFiles)]] = text;
        }
    }
    const int descriptor = dup(STDERR_FILENO);
    android::base::SetMinimumLogSeverity(android::base::FATAL);  // the log is not checked here
    // Each boot may convert a file that the previous one could not recognise as old.
    PropertyMap properties, before;
    std::string state, state_before;
    for (int boots = 0; boots < 2 || properties != before || state != state_before; ++boots) {
        fuzz::Expect(boots < 8, "every boot from the one before it");
        before = properties;
        state_before = state;
        properties = Boot(given);
        state = State();
    }
    const int next = dup(STDERR_FILENO);
    fuzz::Expect(next == descriptor + 1, "the open descriptors");
    close(next);
    close(descriptor);
    return 0;
}
