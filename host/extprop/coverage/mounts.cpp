#include "coverage/mounts.h"

#include <android-base/file.h>
#include <android-base/strings.h>

#include "TesvoExtensionProperty/cota.h"
#include "TesvoExtensionProperty/names.h"
#include "boot/load_tracker.h"
#include "boot/real_path.h"
#include "device/inside.h"
#include "device/property_lines.h"

namespace extprop {

namespace {

using namespace android::init;

// A message, and the property that names what is mounted.
constexpr struct {
    const char* message;
    const char* source;
    const char* target;  // if the message names none
} kMessages[] = {
        {kCotaMountInfoFile, kCotaRoot, kCarrierRoot},
        {kCotaModuleInfoFile, kMountPoint, ""},
};

}  // namespace

std::optional<std::string> Mount::Shown(const std::string& path) const {
    for (std::string above = android::base::Dirname(path); above.size() > 1;
         above = android::base::Dirname(above)) {
        if (RealPath(above, true) != target) continue;
        return RealPath(source + path.substr(above.size()), false);
    }
    return std::nullopt;
}

std::vector<Mount> FindMounts() {
    std::vector<Mount> mounts;
    for (const auto& known : kMessages) {
        const std::string content = LoadTracker::Content(known.message).value_or("");
        PropertyMap info;
        for (const PropertyLine& line : PropertyLines(content)) {
            if (line.kind == PropertyLine::kProperty) {
                info[std::string(line.name)] = std::string(line.value);
            }
        }
        const std::string source = valueOf(info, known.source);
        const std::string point = valueOf(info, kBindPoint, known.target);
        if (point.empty()) continue;
        const auto target = RealPath(point, true);
        if (!android::base::StartsWith(source, "/") || !IsDirectory(source)) continue;
        if (target && *target != source) mounts.push_back({source, *target});
    }
    return mounts;
}

}  // namespace extprop
