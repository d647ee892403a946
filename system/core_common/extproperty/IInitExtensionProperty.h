// What init sees of the library: the types it shares with it, the interface, and the one function
// that it looks up.

#pragma once

#include <map>
#include <string>

namespace android {
namespace init {

// Property names and values, in ascending byte order of the names.
using PropertyMap = std::map<std::string, std::string>;

// Takes the properties that an operation hands to init. Mode 0 is an ordinary batch; 1 marks the
// company image's properties and 2 a state that init has to keep. The map is the callee's own copy.
using PropertyCallback = void (*)(int mode, PropertyMap properties);

// The operations that init calls, in the slot order that both sides are compiled against: a new
// operation goes to the end, none moves. Results reach init only through the map, the callback and
// the log; no operation stops the boot, but imports that form a cycle crash the process. A file
// that is missing or cannot be read is left out, mostly with a line in the log. Names and values
// are not validated. No pointer or callback may be null.
class IInitExtensionProperty {
  public:
    virtual ~IInitExtensionProperty() = default;

    // Keeps the name under which init loaded the library.
    virtual void setLibName(const char* name) = 0;

    // Bind-mounts the package's media directory over `target` and publishes mount(2)'s result as a
    // system property. Does nothing unless `target` begins with "/my_" and the property that names
    // the media directory is set.
    virtual void bindCustomizeMediaPath(const char* target) = 0;

    // Adds the build.prop of every extension partition to `*properties`, later partitions
    // replacing the values of earlier ones.
    virtual void loadExtensionPartitionProperties(PropertyMap* properties) = 0;

    // Adds the build.prop of the one partition mounted at `partitionRoot`.
    virtual void loadExtensionPartitionProperties(std::string partitionRoot,
                                                  PropertyMap* properties) = 0;

    // Runs the boot sequence that follows the loading of the persistent properties. Returns 0.
    virtual int loadPersistOverrideProperties(PropertyCallback callback) = 0;

    // Hands over the properties of a carrier package that is mounted already.
    virtual void loadCotaOverrideProperties(PropertyCallback callback) = 0;

    // Hands over the company image's configuration of a limited edition.
    virtual void loadDuskriderOverrideProperties(PropertyCallback callback) = 0;

    // Hands over everything that the SIM, carrier and region keys in force select.
    virtual void loadSimSwitchOverrideProperties(PropertyCallback callback) = 0;

    // Performs one named switch command; an unknown one does nothing.
    virtual void loadSimSwitchOverrideProperties(std::string command,
                                                 PropertyCallback callback) = 0;

    // Reserved for extensions that decide on single properties. This library returns false.
    virtual bool loadOverrideProperty(std::string /*name*/, std::string /*value*/,
                                      PropertyCallback /*callback*/) {
        return false;
    }

    // Performs one command of the carrier-package service; such commands run one at a time, but the
    // thread that check_mount starts calls `callback` later, at any time. An exception passes
    // through if there can be no thread. An unknown command is only logged.
    virtual void loadCotaServiceOverrideProperties(std::string command,
                                                   PropertyCallback callback) = 0;
};

}  // namespace init
}  // namespace android

// Returns the process's one extension object, made on the first call and never destroyed, and gives
// it the name `libName`, not null, under which init loaded the library. Only the making is safe
// from several threads.
extern "C" android::init::IInitExtensionProperty* KSVI_FETCH_IInitExtensionProperty(
        const char* libName);
