// The build.prop files of the extension partitions, and the property files of one directory.

#include <dirent.h>

#include <memory>

#include <android-base/logging.h>
#include <android-base/strings.h>

#include "../InitExtensionPropertyImpl.h"
#include "../utils.h"

namespace android {
namespace init {

namespace {

constexpr char kCarrierType[] = "ro.tesvo.image.my_carrier.type";
constexpr char kCustVersion[] = "ro.tesvo.cust.ver";

}  // namespace

void InitExtensionPropertyImpl::loadExtensionPartitionProperties(PropertyMap* properties) {
    for (const std::string& root : PartitionSearchList) {
        loadExtensionPartitionProperties(root, properties);
    }
    modifyComponentPriorityIfNeed(properties);
}

void InitExtensionPropertyImpl::loadExtensionPartitionProperties(std::string partitionRoot,
                                                                 PropertyMap* properties) {
    const std::string path = partitionRoot + "/build.prop";
    if (!load_properties_from_file_without_se(path.c_str(), nullptr, properties)) {
        LOG(ERROR) << "partition property load failed:" << path;
    }
}

void InitExtensionPropertyImpl::loadPropertiesFromDir(const std::string& directory,
                                                      PropertyMap* properties) {
    std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(directory.c_str()), closedir);
    if (dir == nullptr) return;
    while (dirent* entry = readdir(dir.get())) {
        if (entry->d_type == DT_DIR) continue;
        const std::string path = directory + "/" + entry->d_name;
        if (!base::EndsWith(path, ".prop")) continue;
        if (!load_properties_from_file_without_se(path.c_str(), nullptr, properties)) {
            LOG(ERROR) << "property load failed:" << path;
        }
    }
}

void InitExtensionPropertyImpl::modifyComponentPriorityIfNeed(PropertyMap* properties) {
    auto type = properties->find(kCarrierType);
    if (type == properties->end() || type->second == "empty") return;
    properties->emplace(kCustVersion, "1");
}

}  // namespace init
}  // namespace android
