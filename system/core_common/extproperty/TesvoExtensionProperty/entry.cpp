// The exported function and the singleton behind it.

#include <strings.h>

#include "../InitExtensionPropertyImpl.h"
#include "../utils.h"
#include "names.h"

namespace android {
namespace init {

std::vector<std::string> PartitionSearchList;

namespace {

struct Brand {
    const char* name;
    const char* code;
};

constexpr Brand kBrands[] = {{"quba", "Q"}, {"lumora", "L"}, {"vantrix", "V"}};

std::string brandCode() {
    std::string brand = load_property_from_file("/system_ext/etc/build.prop",
                                                "ro.tesvo.image.system_ext.brand");
    for (const Brand& known : kBrands) {
        if (strcasecmp(brand.c_str(), known.name) == 0) return known.code;
    }
    return "";
}

}  // namespace

InitExtensionPropertyImpl* InitExtensionPropertyImpl::getInstance() {
    static std::mutex creation;
    std::lock_guard<std::mutex> lock(creation);
    static auto* instance = new InitExtensionPropertyImpl();
    return instance;
}

InitExtensionPropertyImpl::InitExtensionPropertyImpl() {
    if (!PartitionSearchList.empty()) return;
    const std::string code = brandCode();
    const std::string region = load_property_from_file(kRegionBuildProp, kRegion);
    // The list always has sixteen entries: without a brand or region some end in "/", and stay. The
    // brand goes with the region's directories and the region with the product's; this is meant.
    PartitionSearchList = {
            "/odm",
            "/mnt/vendor/my_preload",
            "/mnt/vendor/my_zorlin",
            "/mnt/vendor/my_stock",
            "/mnt/vendor/my_region/global",
            "/mnt/vendor/my_region/global/" + code,
            "/mnt/vendor/my_product",
            "/mnt/vendor/my_region",
            "/mnt/vendor/my_region/" + code,
            "/mnt/vendor/my_product/cust/" + region,
            "/mnt/vendor/my_carrier",
            "/mnt/vendor/my_carrier/cust",
            "/mnt/vendor/my_bigball",
            "/mnt/vendor/my_company",
            "/mnt/vendor/my_engineering",
            "/mnt/vendor/my_manifest",
    };
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
