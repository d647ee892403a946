// The extension partitions: the list of their roots, their build.prop files, and the property files
// of one directory.

#include "partitions.h"

#include <dirent.h>
#include <errno.h>
#include <strings.h>

#include <memory>

#include <android-base/logging.h>
#include <android-base/strings.h>

#include "../InitExtensionPropertyImpl.h"
#include "../utils.h"
#include "names.h"

namespace android {
namespace init {

std::vector<std::string> PartitionSearchList;

namespace {

constexpr char kCarrierType[] = "ro.tesvo.image.my_carrier.type";
constexpr char kCustVersion[] = "ro.tesvo.cust.ver";

std::string brandCode() {
    const std::string brand = load_property_from_file(kSystemExtBuildProp, kBrand);
    for (const Brand& known : kBrands) {
        if (strcasecmp(brand.c_str(), known.name) == 0) return known.code;
    }
    return "";
}

DIR* openDirectory(const char* path) {
    DIR* dir;
    do {
        dir = opendir(path);
    } while (dir == nullptr && errno == EINTR);
    return dir;
}

}  // namespace

std::vector<std::string> partitionRoots(const std::string& brandCode, const std::string& region) {
    // QUIRK: without a brand or region some entries end in "/" and are kept, so that there are
    // always sixteen; the brand belongs to the region's directories and the region to the
    // product's.
    return {
            "/odm",
            "/mnt/vendor/my_preload",
            "/mnt/vendor/my_zorlin",
            "/mnt/vendor/my_stock",
            "/mnt/vendor/my_region/global",
            "/mnt/vendor/my_region/global/" + brandCode,
            "/mnt/vendor/my_product",
            "/mnt/vendor/my_region",
            "/mnt/vendor/my_region/" + brandCode,
            "/mnt/vendor/my_product/cust/" + region,
            "/mnt/vendor/my_carrier",
            "/mnt/vendor/my_carrier/cust",
            "/mnt/vendor/my_bigball",
            "/mnt/vendor/my_company",
            "/mnt/vendor/my_engineering",
            "/mnt/vendor/my_manifest",
    };
}

std::vector<std::string> findPartitionRoots() {
    const std::string code = brandCode();
    return partitionRoots(code, load_property_from_file(kRegionBuildProp, kRegion));
}

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
    std::unique_ptr<DIR, int (*)(DIR*)> dir(openDirectory(directory.c_str()), closedir);
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
