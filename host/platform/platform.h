// The workstation's side of the platform: the property store and the labels that stand in for the
// device's, and a window on what the extension library asks of the system.

#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "IInitExtensionProperty.h"

namespace platform {

using android::init::PropertyMap;

// Returns a copy of all system properties. Safe from any thread, as is everything below.
PropertyMap AllProperties();

// Shows all system properties to `show`, which must not set any.
void ShowProperties(const std::function<void(const PropertyMap&)>& show);

// Makes `properties` the whole property store.
void ResetProperties(PropertyMap properties);

// Sets a property as init does from its own memory: any length, read-only ones too. Returns its
// value before, if it had one.
std::optional<std::string> StoreProperty(const std::string& name, const std::string& value);

// Held while a property is changed and the change is told of, so that changes are told of in their
// order. Whoever changes properties and tells of it himself takes it too.
std::mutex& ChangeMutex();

// Makes every later selinux_android_restorecon fail with -1 and EIO, or succeed again.
void FailRestorecon(bool fail);

// Is told, on the thread that acts, what this process asks of the system. The functions may be
// called from several threads at once.
class Observer {
  public:
    virtual ~Observer() = default;

    // A file is about to be opened, by open(2) or a file stream. That may hang or fail.
    virtual void OnOpen(const char* /*path*/, int /*flags*/) {}

    // What is read was opened so, at its start.
    virtual void OnOpened(int /*fd*/) {}

    // mount(2) is about to be called, which may change what the paths lead to.
    virtual void OnMounting(const char* /*source*/, const char* /*target*/) {}

    // mount(2) was called and returned `result`, with `error` in errno.
    virtual void OnMount(const char* /*source*/, const char* /*target*/, unsigned long /*flags*/,
                         int /*result*/, int /*error*/) {}

    // The library's loader is about to load the property file at `path`, through `filter` (null or
    // empty for none), into `*properties`, which may hold something already; and came back.
    virtual void OnLoad(const char* /*path*/, const char* /*filter*/,
                        const PropertyMap* /*properties*/) {}
    // `loaded` is whether the file could be read.
    virtual void OnLoaded(const PropertyMap* /*properties*/, bool /*loaded*/) {}

    // property_get or android::base::GetProperty was asked for the property.
    virtual void OnPropertyGet(const std::string& /*name*/) {}

    // The library has looked up the one property `name` in the file at `path`.
    virtual void OnLookUp(const char* /*path*/, const char* /*name*/) {}

    // property_set or android::base::SetProperty took the value.
    virtual void OnPropertySet(const std::string& /*name*/, const std::string& /*value*/) {}

    // selinux_android_restorecon was called and returned `result`.
    virtual void OnRestorecon(const char* /*path*/, unsigned int /*flags*/, int /*result*/) {}
};

// Makes `observer` the one that is told, in place of the one before; null for none. It must live
// until it is replaced.
void SetObserver(Observer* observer);

// The observer in force, or null.
Observer* CurrentObserver();

}  // namespace platform
