// Rules on files as a whole: the market names, the switch keys' directories, the logos.

#include <stdint.h>

#include <algorithm>
#include <limits>
#include <stdexcept>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/strings.h>

#include "InitExtensionPropertyImpl.h"
#include "TesvoExtensionProperty/names.h"
#include "lint/rules.h"
#include "nearest.h"
#include "platform.h"
#include "printable.h"
#include "sandbox.h"
#include "utils.h"

namespace extprop {

namespace {

using android::base::EndsWith;
using android::base::StartsWith;
using android::init::kSplashPartition;

constexpr const Rule& kRomNeverMatches = RuleNamed("rom-never-matches");
constexpr const Rule& kMisspeltField = RuleNamed("misspelt-field");
constexpr const Rule& kSkippedFile = RuleNamed("skipped-file");
constexpr const Rule& kLogoTooLarge = RuleNamed("logo-too-large");

bool g_market_name_given = false;

// Returns whether a phone with this configuration, and nothing else, gets a market name with
// storage of any size. Calls the library for each size in a sandbox. Throws std::runtime_error if
// that fails.
bool AnyPhoneGetsMarketName(const std::string& configuration) {
    constexpr int kNone = 3;
    const TemporaryDir nothing;
    const sandbox::Sandbox phone(nothing.path);
    const sandbox::Ending ending = phone.Run([&configuration] {
        constexpr int32_t kSectorsPerGib = 2097152;
        android::base::SetLogger([](auto...) {});
        platform::ResetProperties({});
        // The library uses these paths if there is no region and no user-data device.
        android::init::createDirectory("/my_product/cust/etc/");
        android::init::createDirectory("/sys/block/");
        WriteFile("/my_product/cust/etc/devicename.cfg", configuration);
        for (int32_t gib = 1; gib <= std::numeric_limits<int32_t>::max() / kSectorsPerGib; ++gib) {
            WriteFile("/sys/block/size", std::to_string(gib * kSectorsPerGib));
            android::init::updateMarketName(
                    [](int, android::init::PropertyMap) { g_market_name_given = true; });
            if (g_market_name_given) return EXIT_SUCCESS;
        }
        return kNone;
    });
    if (!ending.ok() && ending.exit_status != kNone) {
        throw std::runtime_error("the library did not return");
    }
    return ending.ok();
}

}  // namespace

void CheckDeviceName(const PropertyFile& file, Findings* findings) {
    if (!file.was_read) return;
    // The library looks up these names, each by the first line that begins so.
    constexpr char kRom[] = "ROM";
    constexpr size_t kNearField = 2;
    const std::vector<std::string> fields = {kRom, "market", "type", "model"};
    for (const PropertyLine& line : file.lines) {
        const std::string name(line.name);
        const bool is_found =
                std::any_of(fields.begin(), fields.end(),
                            [&](const std::string& field) { return StartsWith(name, field); });
        const std::string nearest = Nearest(name, fields, std::min(kNearField, name.size() / 2));
        if (line.kind != PropertyLine::kProperty || is_found || nearest.empty()) continue;
        findings->Add(
                kMisspeltField, file.path, line.number,
                "the library looks for no " + QuotedShort(name) + " here" + Suggestion(nearest));
    }
    int rom_line = 0;
    for (const PropertyLine& line : file.lines) {
        // As in the library's look-up: the first line that begins so.
        if (line.kind != PropertyLine::kProperty || !StartsWith(line.text, kRom)) continue;
        rom_line = line.number;
        break;
    }
    if (rom_line == 0) {
        findings->Add(kRomNeverMatches, file.path,
                      "no line gives the ROM, the storage size that the names are for, so the "
                      "market name is never set");
        return;
    }
    try {
        if (AnyPhoneGetsMarketName(file.content)) return;
        findings->Add(kRomNeverMatches, file.path, rom_line,
                      "no phone has a storage of this size, so the market name is never set");
    } catch (const std::runtime_error& error) {
        findings->Add(kNotChecked, file.path, rom_line,
                      std::string("the storage size was not tried: ") + error.what());
    }
}

void CheckKeyDirectories(const std::vector<FoundFile>& places, Findings* findings) {
    for (const FoundFile& place : places) {
        if (place.is_directory() || EndsWith(place.path, ".prop") || !IsOfSwitchKey(place.path)) {
            continue;
        }
        findings->Add(kSkippedFile, place.path, kOnlyPropFiles);
    }
}

void CheckLogos(const DeviceTree& tree, const std::vector<FoundFile>& places, Findings* findings) {
    FoundFile partition;
    if (!tree.Find(kSplashPartition, true, &partition) || !partition.is_file()) return;
    for (const FoundFile& place : places) {
        const bool is_logo = EndsWith(place.path, "/media/logo/logo.img") ||
                             EndsWith(place.path, "/media/logo/logo.bin");
        if (!is_logo || place.status.st_size <= partition.status.st_size) continue;
        findings->Add(kLogoTooLarge, place.path,
                      "the logo has " + std::to_string(place.status.st_size) +
                              " bytes, the splash partition " +
                              std::to_string(partition.status.st_size) + ", so it is never copied");
    }
}

}  // namespace extprop
