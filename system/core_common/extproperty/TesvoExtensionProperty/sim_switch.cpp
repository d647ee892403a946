// The property sets that apply to one SIM, carrier or region key only.

#include <unistd.h>
#include <wctype.h>

#include <iterator>

#include <android-base/logging.h>
#include <android-base/strings.h>

#include "../InitExtensionPropertyImpl.h"
#include "../utils.h"
#include "commands.h"
#include "cota.h"

namespace android {
namespace init {

namespace {

std::string keyDirectory(const std::string& root, const std::string& key, const char* leaf) {
    return root + "/properties/" + key + "/" + leaf;
}

void refreshKey(const char* property, std::string* key) {
    if (std::string value = readProperty(property); !value.empty()) *key = value;
}

std::string lowerCase(std::string text) {
    for (char& c : text) c = static_cast<char>(towlower(static_cast<unsigned char>(c)));
    return text;
}

}  // namespace

std::string readOperatorPair() {
    const std::string opta = readProperty(kOperatorA);
    const std::string optb = readProperty(kOperatorB);
    if (opta.empty() || optb.empty()) return "";
    return lowerCase(opta) + "-" + lowerCase(optb);
}

void InitExtensionPropertyImpl::loadExtensionPartitionSimswitchProperties(std::string partition,
                                                                          PropertyMap* props) {
    // QUIRK: both conditions load the file of the nv target key, which is loaded twice if both
    // hold; with an operator pair alone its name is "build..prop".
    const std::string oldKeyFile = partition + "/etc/build." + nvTargetKey + ".prop";
    const struct {
        const std::string& guard;
        const char* failure;
    } oldKeyLoads[] = {
            {nvTargetKey, "nv old property load failed:"},
            {operatorPair, "ssv old property load failed:"},
    };
    for (const auto& load : oldKeyLoads) {
        if (load.guard.empty() || access(oldKeyFile.c_str(), F_OK) != 0) continue;
        if (!load_properties_from_file_without_se(oldKeyFile.c_str(), nullptr, props)) {
            LOG(ERROR) << load.failure << oldKeyFile;
        }
    }

    const struct {
        const std::string& key;
        const char* leaf;
    } keyLoads[] = {
            {simSwitchCurrent, kCurrentTimeLeaf},
            {simSwitchFirst, kFirstTimeLeaf},
            {channelInfo, kCarrierChannelLeaf},
            {regionSwitchFirst, kRegionLeaf},
    };
    for (const auto& load : keyLoads) {
        if (load.key.empty()) continue;
        loadPropertiesFromDir(keyDirectory(partition, load.key, load.leaf), props);
    }
}

void InitExtensionPropertyImpl::loadSimSwitchOverrideProperties(PropertyCallback callback) {
    refreshKey(kSimSwitchFirst, &simSwitchFirst);
    refreshKey(kSimSwitchCurrent, &simSwitchCurrent);
    if (std::string pair = readOperatorPair(); !pair.empty()) operatorPair = pair;
    refreshKey(kRegionSwitchFirst, &regionSwitchFirst);

    if (simSwitchFirst.empty() && simSwitchCurrent.empty() && operatorPair.empty() &&
        regionSwitchFirst.empty()) {
        loadSpecialProperties(callback);
        return;
    }
    PropertyMap properties;
    for (const std::string& root : PartitionSearchList) {
        loadExtensionPartitionSimswitchProperties(root, &properties);
    }
    if (std::string root; findMountedCota(&root)) {
        loadExtensionPartitionSimswitchProperties(root, &properties);
    }
    if (!properties.empty()) callback(0, properties);
}

void InitExtensionPropertyImpl::loadSimSwitchOverrideProperties(std::string command,
                                                                PropertyCallback callback) {
    // In the order of kSwitchKeyCommands.
    std::string* const keys[] = {&simSwitchCurrent, &simSwitchFirst, &channelInfo,
                                 &regionSwitchFirst};
    static_assert(std::size(keys) == std::size(kSwitchKeyCommands));

    PropertyMap properties;
    for (size_t i = 0; i < std::size(keys); ++i) {
        const SwitchKeyCommand& known = kSwitchKeyCommands[i];
        if (command != known.command) continue;
        refreshKey(known.property, keys[i]);
        if (keys[i]->empty()) return;
        for (const std::string& root : PartitionSearchList) {
            loadPropertiesFromDir(keyDirectory(root, *keys[i], known.leaf), &properties);
        }
    }
    for (const SwitchFileCommand& known : kSwitchFileCommands) {
        if (command != known.command) continue;
        if (!load_properties_from_file_without_se(known.path, nullptr, &properties)) {
            LOG(ERROR) << known.failure << known.path;
        }
    }
    if (base::StartsWith(command, kLogoTrigger)) copyLogoIfNeeded(command);
    if (!properties.empty()) callback(0, properties);
}

}  // namespace init
}  // namespace android
