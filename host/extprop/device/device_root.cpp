#include "device/device_root.h"

#include <algorithm>

#include <android-base/strings.h>

#include "TesvoExtensionProperty/cota.h"
#include "TesvoExtensionProperty/names.h"
#include "TesvoExtensionProperty/partitions.h"
#include "device/places.h"
#include "printable.h"

namespace extprop {

namespace {

// Returns whether the directory, "" for the root, has a place that the library reads, or a
// partition with such a place.
bool IsDeviceRoot(const DeviceTree& tree, const std::string& directory) {
    FoundFile place;
    const auto has = [&](const char* path) { return tree.Find(directory + path, true, &place); };
    const auto& files = FixedFiles();
    if (has(android::init::kSystemExtBuildProp) ||
        std::any_of(files.begin(), files.end(),
                    [&](const FixedFile& file) { return has(file.path); })) {
        return true;
    }
    for (const std::string mounts : {"", "/mnt/vendor"}) {
        for (const std::string& name : tree.Names(directory + mounts)) {
            const std::string path = mounts + "/" + name;
            // A directory that is itself a /mnt/vendor has such names, and is no root.
            if (!directory.empty() && android::base::StartsWith(path, "/my_")) continue;
            if (PartitionOf(path) != path) continue;
            if (KindOfPartition(path).kind != PartitionKind::kSystems) return true;
        }
    }
    return false;
}

}  // namespace

std::optional<std::string> WhyNoDevice(const DeviceTree& tree) {
    if (IsDeviceRoot(tree, "")) return std::nullopt;
    const std::vector<std::string> names = tree.Names("/");
    if (names.empty()) return "this directory is empty";
    std::string why =
            "this directory has nothing at any place where the library reads, so it is no device's "
            "root";
    for (const std::string& name : names) {
        if (!IsDeviceRoot(tree, "/" + name)) continue;
        return why + "; did you mean " + QuotedShort(name) + " in it?";
    }
    return why;
}

}  // namespace extprop
