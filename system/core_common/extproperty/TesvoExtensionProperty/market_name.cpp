// The market name that belongs to the device's storage size.

#include <errno.h>
#include <stdint.h>
#include <stdlib.h>
#include <unistd.h>

#include <limits>
#include <optional>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/parseint.h>

#include "../InitExtensionPropertyImpl.h"
#include "../utils.h"
#include "names.h"

namespace android {
namespace init {

namespace {

constexpr int32_t kSectorsPerGib = 2097152;

// The storage sizes that a device is sold with, and the measured sizes that count as each, in GiB.
struct RomSize {
    int rom;
    int least;
    int most;
};

constexpr RomSize kRomSizes[] = {
        {128, 79, 177}, {256, 207, 305}, {512, 413, 611}, {1024, 925, 1024},  // QUIRK: one-sided
};

bool matchesRomSize(int rom, int measured) {
    for (const RomSize& size : kRomSizes) {
        if (size.rom == rom) return measured >= size.least && measured <= size.most;
    }
    return false;
}

// Leading white space and any text after the number are allowed, as in strtol(3).
std::optional<int32_t> parseSectorCount(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    long count = strtol(text.c_str(), &end, 10);
    if (end == text.c_str() || errno == ERANGE) return std::nullopt;
    if (count < std::numeric_limits<int32_t>::min() ||
        count > std::numeric_limits<int32_t>::max()) {
        return std::nullopt;
    }
    return static_cast<int32_t>(count);
}

// Returns 0 unless the text is digits only and their number fits an int.
int parseRomSize(const std::string& text) {
    int size = 0;
    if (text.find_first_not_of("0123456789") != std::string::npos) return 0;
    return base::ParseInt(text, &size) ? size : 0;
}

}  // namespace

void updateMarketName(PropertyCallback callback) {
    const std::string config = "/my_product/cust/" +
                               load_property_from_file(kRegionBuildProp, kRegion) +
                               "/etc/devicename.cfg";
    if (access(config.c_str(), F_OK) != 0) {
        LOG(ERROR) << "there is no config file: " << config;
        return;
    }
    const std::string sizeFile = "/sys/block/" + readProperty("dev.mnt.blk.userdata") + "/size";
    std::string sizeText;
    if (!base::ReadFileToString(sizeFile, &sizeText)) return;
    const std::optional<int32_t> sectors = parseSectorCount(sizeText);
    if (!sectors) {
        LOG(ERROR) << "can not convert block size: " << sizeFile;
        return;
    }
    const auto configured = [&config](const char* name) {
        return load_property_from_file(config.c_str(), name);
    };
    if (!matchesRomSize(parseRomSize(configured("ROM")), *sectors / kSectorsPerGib)) return;

    const std::string market = configured("market");
    const std::string type = configured("type");
    const std::string model = configured("model");
    callback(0, {{"ro.vendor.tesvo.market.name", market},
                 {"ro.product.littletail_type", type},
                 {"ro.product.littletail_model", model}});
}

}  // namespace init
}  // namespace android
