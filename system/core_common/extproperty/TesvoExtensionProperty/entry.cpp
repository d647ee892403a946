// The exported function and the singleton that it returns.

#include "../InitExtensionPropertyImpl.h"
#include "partitions.h"

namespace android {
namespace init {

InitExtensionPropertyImpl* InitExtensionPropertyImpl::getInstance() {
    static std::mutex creation;
    std::lock_guard<std::mutex> lock(creation);
    static auto* instance = new InitExtensionPropertyImpl();
    return instance;
}

InitExtensionPropertyImpl::InitExtensionPropertyImpl() {
    if (PartitionSearchList.empty()) PartitionSearchList = findPartitionRoots();
}

void InitExtensionPropertyImpl::setLibName(const char* name) {
    libName = name;
}

}  // namespace init
}  // namespace android

android::init::IInitExtensionProperty* KSVI_FETCH_IInitExtensionProperty(const char* libName) {
    android::init::IInitExtensionProperty* extension =
            android::init::InitExtensionPropertyImpl::getInstance();
    extension->setLibName(libName);
    return extension;
}
