// The stores in which older software kept its switch key, and the files that map such a key to a
// present one.

#include <unistd.h>

#include <algorithm>

#include <android-base/file.h>
#include <android-base/logging.h>

#include "../InitExtensionPropertyImpl.h"
#include "../utils.h"
#include "names.h"

namespace android {
namespace init {

void find_nv_ssv_target_key(std::string key, std::string fileName, std::string* target) {
    target->clear();
    if (key.empty()) return;
    // The partition with the highest priority comes first.
    for (auto root = PartitionSearchList.rbegin(); root != PartitionSearchList.rend(); ++root) {
        const std::string path = *root + "/etc/" + fileName;
        if (access(path.c_str(), F_OK) != 0) continue;
        PropertyMap mapping;
        if (!load_properties_from_file_without_se(path.c_str(), nullptr, &mapping)) {
            LOG(ERROR) << "map file load failed:" << path;
            continue;
        }
        // The key of a raw store may be padded with zero bytes.
        if (auto entry = mapping.find(key.c_str()); entry != mapping.end()) {
            target->append(entry->second);
            return;
        }
    }
}

void load_old_nv_key(std::string* nvKey, std::string* nvTargetKey) {
    std::string content;
    for (const char* store : kNvStores) {
        if (!base::ReadFileToString(store, &content)) {
            LOG(ERROR) << "read nv_flag failed :" << store;
        } else if (content.empty()) {
            // QUIRK: a word is missing in this text, as in what people search the logs for.
            LOG(WARNING) << "Couldn't file" << store;
        } else {
            break;
        }
    }
    if (content.empty()) return;
    content.resize(std::min(content.size(), kNvKeySize));
    nvKey->append(content);
    find_nv_ssv_target_key(content, kNvFlagMap, nvTargetKey);
}

void read_old_ssv_key(std::string* ssvKey) {
    if (access(kOldActionFile, F_OK) != 0) return;
    if (!base::ReadFileToString(kOldActionFile, ssvKey)) {
        LOG(ERROR) << "read old ssv failed :" << kOldActionFile;
    }
}

void load_convert_first_key(std::string* firstKey, std::string* nvKey, std::string* ssvKey) {
    const std::string carrier = readProperty("ro.boot.vxcarrier");
    const std::string* const oldKeys[] = {&carrier, nvKey, ssvKey};
    for (const std::string* key : oldKeys) {
        if (firstKey->empty()) find_nv_ssv_target_key(*key, kSwitchKeyMap, firstKey);
    }
}

}  // namespace init
}  // namespace android
