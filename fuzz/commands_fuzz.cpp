// Any word as a service or a switch command: only words that are exactly a command do anything.

#include <algorithm>
#include <iterator>

#include <android-base/strings.h>

#include "device.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace android::init;
    static constexpr const char* kService[] = {"check_mount",      "mount_and_check_load",
                                               "mount_must_load",  "bind_basic_point",
                                               "update_cota_info", "module_bind_single"};
    static constexpr const char* kKeys[] = {"simSwitchCurrent", "simSwitchFirst",
                                            "switchCarrierChannel", "regionSwitch"};
    static constexpr const char* kLeaves[] = {"SimSwitchCurrentTime", "SimSwitchFirstTime",
                                              "switchCarrierChannel", "regionSwitch"};
    static constexpr const char* kProperties[] = {"sys.sim.switch.current", "sys.sim.switch.first",
                                                  "persist.sys.channel.info",
                                                  "sys.region.switch.first"};
    constexpr char kSplash[] = "/dev/block/by-name/splash_odm";
    fuzz::Clear();
    const std::string word(reinterpret_cast<const char*>(data), size);
    PartitionSearchList = {"/odm"};
    InitExtensionPropertyImpl extension;
    for (const char* known : kService) {
        if (word == known) return 0;
    }
    extension.loadCotaServiceOverrideProperties(word, fuzz::Callback);
    // The log ends a text at a zero byte and divides it into lines.
    fuzz::Expect(!fuzz::TakeLog().empty() && fuzz::TakeCalls().empty(), "the unknown word");

    fuzz::Put(kSplash, std::string("0123456789"));
    fuzz::Put("/logo", std::string("new"));
    for (size_t i = 0; i < std::size(kKeys); ++i) {
        platform::StoreProperty(kProperties[i], "key");
        fuzz::Put(std::string("/odm/properties/key/") + kLeaves[i] + "/a.prop",
                  std::string("word=") + kKeys[i]);
    }
    extension.loadSimSwitchOverrideProperties(word, fuzz::Callback);
    const bool is_key = std::find(std::begin(kKeys), std::end(kKeys), word) != std::end(kKeys);
    const auto calls = fuzz::TakeCalls();
    fuzz::Expect(calls.size() == is_key && (!is_key || calls[0].at("word") == word), "the key");
    const bool is_logo = android::base::StartsWith(word, "triggerLogoCopy") &&
                         word.find('/') != std::string::npos;
    if (fuzz::Get(kSplash) != "0123456789") fuzz::Expect(is_logo, "the splash partition");
    return 0;
}
