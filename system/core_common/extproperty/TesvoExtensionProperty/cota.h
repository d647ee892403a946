// What the carrier-package (COTA) operations share.

#pragma once

#include <string>

#include "../InitExtensionPropertyImpl.h"

namespace android {
namespace init {

// One-shot messages of the installing service: the whole package, and one module.
constexpr char kCotaMountInfoFile[] = "/data/cota/cota_mount_info.prop";
constexpr char kCotaModuleInfoFile[] = "/data/cota/cota_module_info.prop";

constexpr char kBindPoint[] = "bind_point";
constexpr char kMountPoint[] = "mount_point";  // of a module: what is bound

// Where a package is bound whose message names no other place.
constexpr char kCarrierRoot[] = "/my_carrier";

// Reads the one-shot file at `path` and deletes it, also when it could not be read, so that it is
// acted on once. Returns false if there is none. The texts go to the log, before the path.
bool takeOneShotFile(const char* path, const char* missing, const char* loadFailed,
                     PropertyMap* properties);

// Returns the value of `name`, or `fallback` if the map does not hold it.
std::string valueOf(const PropertyMap& properties, const char* name, const char* fallback = "");

// Whether a name in a one-shot file is a system property rather than an instruction.
bool isSystemProperty(const std::string& name);

// Binds `source` over `target` as every part of a carrier package is. Returns mount(2)'s result.
int bindCotaDirectory(const std::string& source, const std::string& target);

// Gives the package's identity to the carrier image where the map names none of its own: the build
// date is copied, the version name moved.
void copyBigballIdentity(PropertyMap* properties);

// Whether a verified package is mounted, and at which `*root`.
bool findMountedCota(std::string* root);

}  // namespace init
}  // namespace android
