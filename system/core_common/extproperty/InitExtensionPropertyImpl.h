// The extension behind the interface, and the free functions that its operations are made of.

#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "IInitExtensionProperty.h"

namespace android {
namespace init {

// The roots of the extension partitions, lowest priority first. Filled when the singleton is made,
// only read afterwards.
extern std::vector<std::string> PartitionSearchList;

class InitExtensionPropertyImpl : public IInitExtensionProperty {
  public:
    // Returns the process's one instance, made on the first call. Safe from several threads.
    static InitExtensionPropertyImpl* getInstance();

    // Fills PartitionSearchList from the device's brand and region unless it is filled already.
    InitExtensionPropertyImpl();

    void setLibName(const char* name) override;
    void bindCustomizeMediaPath(const char* target) override;
    void loadExtensionPartitionProperties(PropertyMap* properties) override;
    void loadExtensionPartitionProperties(std::string partitionRoot,
                                          PropertyMap* properties) override;
    int loadPersistOverrideProperties(PropertyCallback callback) override;
    void loadCotaOverrideProperties(PropertyCallback callback) override;
    void loadDuskriderOverrideProperties(PropertyCallback callback) override;
    void loadSimSwitchOverrideProperties(PropertyCallback callback) override;
    void loadSimSwitchOverrideProperties(std::string command, PropertyCallback callback) override;
    void loadCotaServiceOverrideProperties(std::string command, PropertyCallback callback) override;

    // Adds every "*.prop" file of `directory`, in the file system's order; no directory, no change.
    void loadPropertiesFromDir(const std::string& directory, PropertyMap* properties);

    // Sets ro.tesvo.cust.ver to "1" if the map has a carrier image and no such name yet.
    void modifyComponentPriorityIfNeed(PropertyMap* properties);

    // Adds what the switch keys held by the object select of the partition at `partition`.
    void loadExtensionPartitionSimswitchProperties(std::string partition, PropertyMap* props);

    // Reads the switch keys' files into `*props` and the object, after migrating the keys of older
    // software and rewriting files in its format.
    void loadExtensionSimswitchKeyInfo(PropertyMap* props);

    // Copies the company's boot logo, or the file that the trigger names behind its first "/", to
    // the splash partition.
    void copyLogoIfNeeded(std::string trigger);

    // Reads and deletes the mount-info file, mounts the package that it names and hands on the
    // properties of both.
    void bindAndLoadCotaOverrideProperties(PropertyCallback callback);

    // Reads and deletes the mount-info file and hands on all that it holds.
    void updateCotaInfoProperties(PropertyCallback callback);

    // Hands on the properties of the module that is mounted at `moduleRoot`.
    void loadCotaConfigureModuleProperties(std::string moduleRoot, PropertyCallback callback);

    // Reads and deletes the mount-info file, makes the module directories that it names, and binds
    // the one module that is described beside it.
    void bindCotaBasicMountPoint(PropertyCallback callback);

    // Reads and deletes the module-info file and binds the module that it describes.
    void bindCotaModuleMountPoint(PropertyCallback callback);

  private:
    // The persist stage's steps. Returns whether the switch keys may have changed.
    bool settleSwitchKeys(PropertyCallback callback);
    void loadSwitchKeys(PropertyMap* properties, PropertyCallback callback);
    void loadSwitchOverlay(PropertyCallback callback);
    void updateCompanyProperties(PropertyCallback callback);

    std::string libName;
    std::string regionSwitchFirst;
    std::string simSwitchFirst;
    std::string simSwitchCurrent;
    std::string channelInfo;
    std::string spareKey;  // QUIRK: nothing reads or writes it; it keeps the layout of the object
    std::string nvKey;
    std::string nvTargetKey;
    std::string operatorPair;
    std::mutex mutex;  // held for the whole of a carrier-package service command
};

// Creates every missing directory of `path` that a "/" ends, with mode 0771. Returns 0, or -1 if
// one cannot be made or the path has 256 bytes or more.
int createDirectory(std::string path);

// Makes `content` the whole content of the key file at `path`. If that fails, logs `failure` and
// the error, removes a file that was not there before, and returns false.
bool writeKeyFile(const char* path, const std::string& content, const char* failure);

// Looks `key` up in the mapping file `fileName` of the partitions, highest priority first, and
// makes `*target` the value found, or empty.
void find_nv_ssv_target_key(std::string key, std::string fileName, std::string* target);

// Appends the radio store's key, at most eight bytes, to `*nvKey` and maps it to `*nvTargetKey`.
// Without a store both stay as they are.
void load_old_nv_key(std::string* nvKey, std::string* nvTargetKey);

// Reads the old action file into `*ssvKey`, which stays as it is if there is none.
void read_old_ssv_key(std::string* ssvKey);

// Maps the boot carrier code, else `*nvKey`, else `*ssvKey` to `*firstKey`, unless that is set.
void load_convert_first_key(std::string* firstKey, std::string* nvKey, std::string* ssvKey);

// Returns the two operator properties in lower case, joined by "-"; empty if either is unset.
std::string readOperatorPair();

// Hands on the export version and, unless it is set already, the display version.
void loadSpecialProperties(PropertyCallback callback);

// Hands on the display version, which must be set already, made anew from the carrier's version
// and the carrier package's.
void loadCustomizeDisplayVersionName(PropertyCallback callback);

// After an emergency shutdown, hands on the reset of the sales channel in mode 2 and deletes the
// channel's state files.
void checkAndRestoreChannelInfo(PropertyCallback callback);

// Hands on the market name if the configured storage size is the measured one.
void updateMarketName(PropertyCallback callback);

// Hands on the two property files that the system keeps on the data partition.
void loadDataSpecialProperties(PropertyCallback callback);

// After an emergency shutdown, hands on the forced connection, if the device allows it, and writes
// it to its key file.
void forceInternetConnection(PropertyCallback callback);

}  // namespace init
}  // namespace android
