// The stores of older software and the files that map their keys: which key they are migrated to.

#include <algorithm>

#include "TesvoExtensionProperty/names.h"
#include "device.h"

using android::init::kOldActionFile;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto parts = fuzz::Parts(data, size, 5);
    fuzz::Clear();
    android::init::PartitionSearchList = {"/low", "/high"};
    // A property is read up to a zero byte, and at most 91 bytes of it.
    const std::string carrier = std::string(parts[0].c_str()).substr(0, 91);
    const std::string &radio = parts[1], &action = parts[2], &low = parts[3], &high = parts[4];
    if ((low + high).find("import ") != std::string::npos) return -1;
    platform::StoreProperty("ro.boot.vxcarrier", carrier);
    fuzz::Put(android::init::kNvStores[size % 3], radio);
    fuzz::Put(kOldActionFile, action);
    for (const char* file : {android::init::kSwitchKeyMap, android::init::kNvFlagMap}) {
        fuzz::Put(std::string("/low/etc/") + file, low);
        fuzz::Put(std::string("/high/etc/") + file, high);
    }
    const auto map = [&](const std::string& key) -> std::string {
        if (key.empty()) return "";
        for (const std::string& content : {high, low}) {
            const auto keys = fuzz::Parse(content);
            if (auto entry = keys.find(key.c_str()); entry != keys.end()) return entry->second;
        }
        return "";
    };
    std::string nv, target, ssv, first;
    android::init::load_old_nv_key(&nv, &target);
    android::init::read_old_ssv_key(&ssv);
    android::init::load_convert_first_key(&first, &nv, &ssv);
    fuzz::Expect(nv == radio.substr(0, 8), "the radio's key");
    fuzz::Expect(target == map(nv), "the radio's key of today");
    fuzz::Expect(ssv == action, "the old action");
    std::string expected = map(carrier);
    if (expected.empty()) expected = map(nv);
    if (expected.empty()) expected = map(ssv);
    fuzz::Expect(first == expected, "the first key");
    return 0;
}
