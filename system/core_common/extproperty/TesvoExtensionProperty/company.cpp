// The limited edition's company configuration.

#include <android-base/logging.h>

#include "../InitExtensionPropertyImpl.h"
#include "../utils.h"
#include "names.h"

namespace android {
namespace init {

void InitExtensionPropertyImpl::loadDuskriderOverrideProperties(PropertyCallback callback) {
    PropertyMap properties;
    if (!load_properties_from_file_without_se(kCompanyConfig, nullptr, &properties)) {
        LOG(INFO) << "can not read prop from :" << kCompanyConfig;
    }
    callback(0, properties);
    loadSpecialProperties(callback);
}

}  // namespace init
}  // namespace android
