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
constexpr char kMountPoint[] = "mount_point";  // of a module: the source of its bind mount

// The default bind point of a package.
constexpr char kCarrierRoot[] = "/my_carrier";

// Reads the one-shot file at `path` into `*properties` and deletes it, even if it could not be
// read, so that it takes effect once; that it cannot be deleted is ignored. Returns false only if
// it is missing. `missing` and `loadFailed` are the log texts for these cases; the path follows
// them.
bool takeOneShotFile(const char* path, const char* missing, const char* loadFailed,
                     PropertyMap* properties);

// Returns the value of `name`, or `fallback` if the map does not hold it.
std::string valueOf(const PropertyMap& properties, const char* name, const char* fallback = "");

// Returns whether a name in a one-shot file is a system property, which begins with "sys." or
// "ro.", rather than an instruction.
bool isSystemProperty(const std::string& name);

// Bind-mounts `source`, a part of a carrier package, over `target`. Returns mount(2)'s result: 0,
// or -1 with errno set.
int bindCotaDirectory(const std::string& source, const std::string& target);

// Copies the package's build date, and moves its version name, to the properties of the carrier
// image; values that the map has for those already stay.
void copyBigballIdentity(PropertyMap* properties);

// Returns whether a verified package is mounted. Sets `*root` to its mount point, or else to
// anything.
bool findMountedCota(std::string* root);

}  // namespace init
}  // namespace android
