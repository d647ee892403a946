// The carrier package's media directory, bind-mounted where the system expects it.

#include <sys/mount.h>

#include <string>

#include <android-base/logging.h>
#include <android-base/strings.h>

#include "../InitExtensionPropertyImpl.h"
#include "names.h"

namespace android {
namespace init {

void InitExtensionPropertyImpl::bindCustomizeMediaPath(const char* target) {
    const std::string source = readProperty(kCustomMediaSource);
    if (source.empty() || !base::StartsWith(target, "/my_")) return;
    const std::string result =
            std::to_string(mount(source.c_str(), target, nullptr, MS_BIND | MS_REC, nullptr));
    LOG(INFO) << "Mount ringtones result :" << result;  // QUIRK: a failure too, at this severity
    property_set(kMediaBindResult, result.c_str());
}

}  // namespace init
}  // namespace android
