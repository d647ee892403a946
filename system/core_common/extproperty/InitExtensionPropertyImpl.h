// The class that implements the interface, and the free functions that its operations call. What
// the interface says of bad files, unchecked names and values, cycles and null holds for all.

#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "IInitExtensionProperty.h"

namespace android {
namespace init {

// The roots of the extension partitions, lowest priority first. Filled when the singleton is made
// and only read after that.
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

    // Adds the properties of every "*.prop" file in `directory`, in the order in which the file
    // system lists them. Does nothing if the directory cannot be opened.
    void loadPropertiesFromDir(const std::string& directory, PropertyMap* properties);

    // Adds ro.tesvo.cust.ver with the value "1" if the map has the type of a carrier image, other
    // than "empty", and no such property yet.
    void modifyComponentPriorityIfNeed(PropertyMap* properties);

    // Adds the properties that the object's switch keys select on the partition at `partition`.
    void loadExtensionPartitionSimswitchProperties(std::string partition, PropertyMap* props);

    // Reads the switch keys' files into `*props` and the object. Before that it migrates the keys
    // of older software; files in that software's format are rewritten.
    void loadExtensionSimswitchKeyInfo(PropertyMap* props);

    // Copies a boot logo to the splash partition: the company's, or the file whose path starts at
    // the first "/" of `trigger`. Does nothing if the partition, the logo or, for the company's,
    // its image's date is missing, or the logo too large. A copy that fails is only logged.
    void copyLogoIfNeeded(std::string trigger);

    // The operations that read and delete a one-shot message only log if it is missing.

    // Reads and deletes the mount-info file, mounts the package that it names, and hands over the
    // properties of the package and of the file: only the file's if it names no verified package;
    // if the mount fails, the package's from where it lies.
    void bindAndLoadCotaOverrideProperties(PropertyCallback callback);

    // Reads and deletes the mount-info file and hands over everything in it.
    void updateCotaInfoProperties(PropertyCallback callback);

    // Hands over the properties of the module that is mounted at `moduleRoot`.
    void loadCotaConfigureModuleProperties(std::string moduleRoot, PropertyCallback callback);

    // Reads and deletes the mount-info file, makes the module directories that it names, where they
    // are allowed, does what bindCotaModuleMountPoint() does, and hands over the file's properties.
    void bindCotaBasicMountPoint(PropertyCallback callback);

    // Reads and deletes the module-info file, bind-mounts the module that it describes, and hands
    // over the properties of the module, if its type is "configure", and of the file; nothing if
    // the file lacks the type or a path, or the mount fails.
    void bindCotaModuleMountPoint(PropertyCallback callback);

  private:
    // The parts of loadPersistOverrideProperties(). The first returns whether the switch keys may
    // have changed.
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

// Creates the missing directories of `path`, those whose names a "/" or a backslash follows, with
// mode 0771. Returns 0, or -1 if one cannot be created or the path has 256 bytes or more.
int createDirectory(std::string path);

// Replaces the content of the key file at `path` with `content`. If that fails, logs `failure` and
// the error, removes a file that was not there before, and returns false; a file that was there may
// then be empty or cut off.
bool writeKeyFile(const char* path, const std::string& content, const char* failure);

// Looks up `key`, as far as its first zero byte, in the mapping file `fileName` of each partition,
// highest priority first, and sets `*target` to the first value found, else to the empty string.
void find_nv_ssv_target_key(std::string key, std::string fileName, std::string* target);

// Appends the radio store's key, at most eight bytes, to `*nvKey` and maps it to `*nvTargetKey`.
// Without a store, or with empty ones, both stay as they are.
void load_old_nv_key(std::string* nvKey, std::string* nvTargetKey);

// Reads the old action file into `*ssvKey`, which stays as it is if there is none, and is empty if
// it cannot be opened.
void read_old_ssv_key(std::string* ssvKey);

// Sets `*firstKey`, unless it is set already, to what the boot carrier code is mapped to, else to
// what `*nvKey`, else to what `*ssvKey` is mapped to.
void load_convert_first_key(std::string* firstKey, std::string* nvKey, std::string* ssvKey);

// Returns the two operator properties in lower case, joined by "-"; empty if either is unset.
std::string readOperatorPair();

// Hands over the export version and, unless it is set already, the display version, each if the
// properties of which it is made allow it.
void loadSpecialProperties(PropertyCallback callback);

// Hands over the display version, built again from the versions of the carrier image and of the
// carrier package. Does nothing if it is not set yet or would be empty.
void loadCustomizeDisplayVersionName(PropertyCallback callback);

// After an emergency shutdown, unless that was done before, hands over in mode 2 the properties
// that reset the sales channel, and deletes the channel's state files.
void checkAndRestoreChannelInfo(PropertyCallback callback);

// Hands over the market name, type and model if the configured storage size matches the measured
// one; those that the configuration lacks are empty.
void updateMarketName(PropertyCallback callback);

// Hands over the two property files that the system keeps on the data partition, as far as they
// exist.
void loadDataSpecialProperties(PropertyCallback callback);

// After an emergency shutdown, if the device allows it, writes the property that forces an internet
// connection to its key file and hands it over, also if it cannot be written. Does nothing if it is
// set already.
void forceInternetConnection(PropertyCallback callback);

}  // namespace init
}  // namespace android
