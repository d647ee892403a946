// The one-shot files of the installing service, and the bind mounts of a package's modules.

#include <sys/mount.h>
#include <unistd.h>

#include <android-base/logging.h>
#include <android-base/strings.h>

#include "../utils.h"
#include "cota.h"
#include "names.h"

namespace android {
namespace init {

namespace {

PropertyMap systemProperties(const PropertyMap& info) {
    PropertyMap properties;
    for (const auto& [name, value] : info) {
        if (isSystemProperty(name)) properties.emplace(name, value);
    }
    return properties;
}

// QUIRK: the roots are compared as plain prefixes, so "/mnt/cotax" and "/mnt/cota/../x" pass.
void prepareModuleDirectory(const std::string& path, const std::string& root) {
    if (!base::StartsWith(path, root) && !base::StartsWith(path, "/data/system/customize")) {
        LOG(ERROR) << "cota module wrong dir " << path;
        return;
    }
    if (access(path.c_str(), F_OK) == 0) return;
    if (createCotaDirectory(path) != 0) LOG(ERROR) << "cota creat dir " << path << " failed";
}

}  // namespace

bool takeOneShotFile(const char* path, const char* missing, const char* loadFailed,
                     PropertyMap* properties) {
    if (access(path, F_OK) != 0) {
        LOG(ERROR) << missing << path;
        return false;
    }
    if (!load_properties_from_file_without_se(path, nullptr, properties)) {
        LOG(ERROR) << loadFailed << path;
    }
    unlink(path);
    return true;
}

std::string valueOf(const PropertyMap& properties, const char* name, const char* fallback) {
    auto entry = properties.find(name);
    return entry == properties.end() ? fallback : entry->second;
}

bool isSystemProperty(const std::string& name) {
    return base::StartsWith(name, "sys.") || base::StartsWith(name, "ro.");
}

int bindCotaDirectory(const std::string& source, const std::string& target) {
    constexpr unsigned long kFlags = MS_BIND | MS_NOATIME | MS_DIRSYNC | MS_NODEV | MS_RDONLY;
    return mount(source.c_str(), target.c_str(), nullptr, kFlags, nullptr);
}

void InitExtensionPropertyImpl::bindCotaBasicMountPoint(PropertyCallback callback) {
    PropertyMap info;
    if (!takeOneShotFile(kCotaMountInfoFile, "not valid cota total module info file: ",
                         "cota total module info prop load failed:", &info)) {
        return;
    }
    const std::string root = readProperty("sys.cota.module.base.mount.point", "/mnt/cota");
    for (const auto& [module, path] : info) {
        if (isSystemProperty(module)) continue;
        LOG(INFO) << "bind cota module: " << module << " mount point: " << path;
        prepareModuleDirectory(path, root);
    }
    bindCotaModuleMountPoint(callback);
    if (PropertyMap forwarded = systemProperties(info); !forwarded.empty()) callback(0, forwarded);
}

void InitExtensionPropertyImpl::bindCotaModuleMountPoint(PropertyCallback callback) {
    PropertyMap info;
    if (!takeOneShotFile(kCotaModuleInfoFile, "not valid cota module info file: ",
                         "cota module info prop load failed:", &info)) {
        return;
    }
    constexpr char kModuleType[] = "module_type";
    // QUIRK: a module without a type, even an empty one, is not bound.
    if (info.count(kModuleType) == 0) return;
    const std::string source = valueOf(info, kMountPoint);
    const std::string target = valueOf(info, kBindPoint);
    if (source.empty() || target.empty()) return;

    LOG(INFO) << "cota module bind from: " << source << " to: " << target;
    if (int result = bindCotaDirectory(source, target); result != 0) {
        LOG(ERROR) << "bindCotaModuleMountPoint bind failed: " << result;
        return;
    }
    if (valueOf(info, kModuleType) == "configure") {
        loadCotaConfigureModuleProperties(target, callback);
    }
    if (PropertyMap forwarded = systemProperties(info); !forwarded.empty()) callback(0, forwarded);
}

}  // namespace init
}  // namespace android
