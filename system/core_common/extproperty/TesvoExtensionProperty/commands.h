// The commands of the operations that take one.

#pragma once

#include "../InitExtensionPropertyImpl.h"
#include "names.h"

namespace android {
namespace init {

// A switch key: the command that loads its directories, its property, the directories' name, and
// the file on the data partition that keeps it.
struct SwitchKeyCommand {
    const char* command;
    const char* property;
    const char* leaf;
    const char* dataFile;
};

inline constexpr SwitchKeyCommand kSwitchKeyCommands[] = {
        {"simSwitchCurrent", kSimSwitchCurrent, kCurrentTimeLeaf, kDataCurrentFile},
        {"simSwitchFirst", kSimSwitchFirst, kFirstTimeLeaf, kDataFirstFile},
        {"switchCarrierChannel", kChannelInfo, kCarrierChannelLeaf, kDataCommonFile},
        {"regionSwitch", kRegionSwitchFirst, kRegionLeaf, kDataRegionFile},
};

// A switch command that loads one file, and the log text if that fails.
struct SwitchFileCommand {
    const char* command;
    const char* path;
    const char* failure;
};

inline constexpr SwitchFileCommand kSwitchFileCommands[] = {
        {"updateDataCommonProp", kDataCommonFile, "load data common prop failed:"},
        {"emptyAppchannelProp", kEmptyAppChannelFile, "load empty appchannel prop file failed:"},
};

// A switch command that begins with the first copies the boot logo whose path it holds; the other
// two copy the one of the company image, kBootTrigger only once for each date of that image.
constexpr char kLogoTrigger[] = "triggerLogoCopy";
constexpr char kBootTrigger[] = "triggerLogoCopyFromCompanyBoot";
constexpr char kCompanyTrigger[] = "triggerLogoCopyFromCompany";

using CotaOperation = void (InitExtensionPropertyImpl::*)(PropertyCallback);

struct NamedOperation {
    const char* word;
    CotaOperation operation;
};

// The service command that starts the bind thread, the requests that the thread serves, and the
// request that ends it.
constexpr char kCheckMount[] = "check_mount";

inline constexpr NamedOperation kRequests[] = {
        {"boot_mount", &InitExtensionPropertyImpl::bindAndLoadCotaOverrideProperties},
        {"module_bind_single_boot", &InitExtensionPropertyImpl::bindCotaModuleMountPoint},
        {"bind_basic_point_boot", &InitExtensionPropertyImpl::bindCotaBasicMountPoint},
};

constexpr char kBindComplete[] = "boot_mount_bind_complete";

// The other service commands.
// QUIRK: the first two run the same operation, which makes neither check before it loads.
inline constexpr NamedOperation kServiceCommands[] = {
        {"mount_and_check_load", &InitExtensionPropertyImpl::bindAndLoadCotaOverrideProperties},
        {"mount_must_load", &InitExtensionPropertyImpl::bindAndLoadCotaOverrideProperties},
        {"bind_basic_point", &InitExtensionPropertyImpl::bindCotaBasicMountPoint},
        {"update_cota_info", &InitExtensionPropertyImpl::updateCotaInfoProperties},
        {"module_bind_single", &InitExtensionPropertyImpl::bindCotaModuleMountPoint},
};

}  // namespace init
}  // namespace android
