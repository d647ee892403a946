// What a workstation provides in place of the device's platform: a property store, SELinux labels,
// and an observer of what the extension library asks of the system.

#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "IInitExtensionProperty.h"

namespace platform {

using android::init::PropertyMap;

// Returns a copy of all system properties. Safe from any thread, as is everything below.
PropertyMap AllProperties();

// A property that is likely to be set to this value, as it was in another boot.
struct ExpectedProperty {
    const std::string* name;
    const std::string* value;
    bool is_legal;  // init takes the value
};

// In the order of their names, which are distinct.
using ExpectedProperties = std::vector<ExpectedProperty>;

// Replaces all system properties with `properties`. The store keeps no copy of a property that has
// its expected value. What is expected, null for nothing, must live unchanged until the next call.
void ResetProperties(PropertyMap properties, const ExpectedProperties* expected = nullptr);

// Returns whether the property is expected to have this value, which init takes.
bool IsExpected(const std::string& name, const std::string& value);

// Compares the system properties with what is expected. Sets `*changed` to those with other
// values or not expected at all, and adds the names of expected ones that are not set to
// `*removed`.
void CompareProperties(PropertyMap* changed, std::vector<std::string>* removed);

// Sets a property as init itself can: any name and value of any length, read-only ones too. Does
// not notify the observer. Returns the property's previous value, if it had one.
std::optional<std::string> StoreProperty(const std::string& name, const std::string& value);

// property_set and SetProperty hold this mutex from the change to the end of OnPropertySet, so that
// changes are reported in their order. A caller of StoreProperty that reports must hold it, too.
std::mutex& ChangeMutex();

// Makes every later selinux_android_restorecon fail with -1 and EIO, or succeed again.
void FailRestorecon(bool fail);

// Makes system calls with these arguments. Returns the result or a negative errno.
using SystemCalls = long (*)(long number, const unsigned long (&arguments)[6]);

// Replaces the kernel, or with null puts it back, for the calls to find, open and look at files and
// to mount that this process makes from now on through the functions of libc that are wrapped here,
// except file streams. All others still reach the kernel.
void SetSystemCalls(SystemCalls calls);

// Gets a call for each request that this process makes of the system, on the thread that makes it:
// several threads may call at once. Arguments are those of the request, valid during the call; a
// text is null where the caller gave null.
class Observer {
  public:
    virtual ~Observer() = default;

    // A file is about to be opened, which may hang or fail, by open(2) with these flags or by a
    // file stream, with O_RDONLY or O_WRONLY.
    virtual void OnOpen(const char* /*path*/, int /*flags*/) {}

    // A file was opened so for reading only; `fd` is at its start and belongs to the caller.
    virtual void OnOpened(int /*fd*/) {}

    // mount(2) is about to be called, which may change what the paths lead to.
    virtual void OnMounting(const char* /*source*/, const char* /*target*/) {}

    // mount(2) was called and returned `result`, with `error` in errno.
    virtual void OnMount(const char* /*source*/, const char* /*target*/, unsigned long /*flags*/,
                         int /*result*/, int /*error*/) {}

    // The library is about to load the property file at `path` into `*properties`, which may hold
    // properties already. `filter` is null or empty for none.
    virtual void OnLoad(const char* /*path*/, const char* /*filter*/,
                        const PropertyMap* /*properties*/) {}

    // The last load that began on this thread has ended. `loaded` is false if the file could not be
    // read.
    virtual void OnLoaded(const PropertyMap* /*properties*/, bool /*loaded*/) {}

    // property_get or android::base::GetProperty is called for the property.
    virtual void OnPropertyGet(const std::string& /*name*/) {}

    // The library has looked up the one property `name` in the file at `path`, which may be
    // missing.
    virtual void OnLookUp(const char* /*path*/, const char* /*name*/) {}

    // property_set or android::base::SetProperty has set the property.
    virtual void OnPropertySet(const std::string& /*name*/, const std::string& /*value*/) {}

    // selinux_android_restorecon was called and returned `result`.
    virtual void OnRestorecon(const char* /*path*/, unsigned int /*flags*/, int /*result*/) {}
};

// Replaces the observer; null for none. `observer` must live until it is replaced and no thread is
// in a call of it.
void SetObserver(Observer* observer);

// Returns the present observer, or null.
Observer* CurrentObserver();

}  // namespace platform
