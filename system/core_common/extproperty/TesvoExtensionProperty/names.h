// Paths and property names that more than one operation uses, and how to read a property.

#pragma once

#include <string>

#include <cutils/properties.h>

namespace android {
namespace init {

// Property files.
constexpr char kRegionBuildProp[] = "/mnt/vendor/my_region/build.prop";
constexpr char kEmptyAppChannelFile[] = "/data/system/customize/empty_appchannel_prop_file.prop";
constexpr char kDataCommonFile[] = "/data/system/customize/data_common_prop_file.prop";

constexpr char kCompanyConfig[] = "/my_company/etc/build.prop";

// The company image's root in the operations on that image, which differs from its root in the
// partition list.
constexpr char kCompanyRoot[] = "/my_company";

// Key files, on the reserve partition and on the data partition.
constexpr char kReserveKeyDir[] = "/mnt/vendor/tesvoreserve/system/ssv/";
constexpr char kOldActionFile[] = "/mnt/vendor/tesvoreserve/system/ssv/sim_action_file";
constexpr char kConvertFile[] = "/mnt/vendor/tesvoreserve/system/ssv/sim_switch_convert_file";
constexpr char kReserveFirstFile[] = "/mnt/vendor/tesvoreserve/system/ssv/sim_switch_first_file";
constexpr char kReserveCurrentFile[] =
        "/mnt/vendor/tesvoreserve/system/ssv/sim_switch_current_file";
constexpr char kNoneClearFile[] = "/mnt/vendor/tesvoreserve/system/ssv/first_switch_none_clear";
constexpr char kDataFirstFile[] = "/data/system/customize/sim_switch/sim_switch_first_file";
constexpr char kDataCurrentFile[] = "/data/system/customize/sim_switch/sim_switch_current_file";
constexpr char kFlashBackFile[] = "/mnt/vendor/tesvoreserve/system/flag/flashback.cfg";
constexpr char kReserveCommonFile[] =
        "/mnt/vendor/tesvoreserve/system/ssv/sim_switch_common_prop_file";
constexpr char kReserveRegionFile[] = "/mnt/vendor/tesvoreserve/system/ssv/region_switch_file";
constexpr char kForceConnectFile[] =
        "/mnt/vendor/tesvoreserve/system/ssv/force_connect_internet_prop_file";
constexpr char kDataRegionFile[] = "/data/system/customize/sim_switch/region_switch_file";

// The radio stores of older software. The last two are the same raw partition under its two usual
// names.
constexpr const char* kNvStores[] = {
        "/mnt/vendor/tesvoreserve/radio/exp_operator_switch.config",
        "/dev/block/platform/bootdevice/by-name/reserve_exp1",
        "/dev/block/bootdevice/by-name/reserve_exp1",
};
constexpr size_t kNvKeySize = 8;

// The files in a partition's etc that map the keys of older software to present ones.
constexpr char kSwitchKeyMap[] = "nvmap.prop";
constexpr char kNvFlagMap[] = "flags.prop";

// The names of a switch key's directories, below a partition's properties/KEY.
constexpr char kFirstTimeLeaf[] = "SimSwitchFirstTime";
constexpr char kCurrentTimeLeaf[] = "SimSwitchCurrentTime";
constexpr char kCarrierChannelLeaf[] = "switchCarrierChannel";
constexpr char kRegionLeaf[] = "regionSwitch";

// The partition that the boot logo is copied into.
constexpr char kSplashPartition[] = "/dev/block/by-name/splash_odm";

// Switch keys.
constexpr char kSimSwitchFirst[] = "sys.sim.switch.first";
constexpr char kSimSwitchCurrent[] = "sys.sim.switch.current";
constexpr char kSimSwitchConvert[] = "sys.sim.switch.convert";
constexpr char kRegionSwitchFirst[] = "sys.region.switch.first";
constexpr char kNoneClearSwitchFirst[] = "ro.none.clear.switch.first";
constexpr char kChannelInfo[] = "persist.sys.channel.info";

constexpr char kOperatorA[] = "persist.sys.tesvo.operator.opta";
constexpr char kOperatorB[] = "persist.sys.tesvo.operator.optb";

// Properties of the images and of the state that the device is in.
constexpr char kRegion[] = "ro.tesvo.pipeline.region";
constexpr char kCompanyDate[] = "ro.tesvo.image.my_company.date";
constexpr char kCompanyDateApplied[] = "persist.sys.tesvo.company.ota.version.backup";
constexpr char kCarrierVersionName[] = "ro.tesvo.image.my_carrier.version_name";
constexpr char kEmergencyShutdown[] = "persist.sys.911.shutdown";
constexpr char kRemoveRegionApk[] = "persist.sys.remove.region.apk";
constexpr char kCustomMediaSource[] = "ro.sys.custommedia.sourcepath";
constexpr char kMediaBindResult[] = "sys.mount.mediapath.success";
constexpr char kCotaVerified[] = "sys.cotaimg.verify";
constexpr char kCotaRoot[] = "sys.cota.load.properties";
constexpr char kCotaBindRequest[] = "sys.cota.bind.load.properties";

// Returns the system property's value, at most 91 bytes, or `defaultValue` if it is unset or empty.
inline std::string readProperty(const char* name, const char* defaultValue = "") {
    char value[PROPERTY_VALUE_MAX];
    property_get(name, value, defaultValue);
    return value;
}

}  // namespace init
}  // namespace android
