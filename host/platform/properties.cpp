// The one property store that both property interfaces of the device use. On a workstation libbase
// has a map without a lock, so its two functions are defined here again: the dynamic linker takes
// the first definition of a name, and everything here links this library before libbase.

#include <string.h>

#include <mutex>
#include <utility>

#include <android-base/properties.h>
#include <cutils/properties.h>

#include "platform.h"

namespace {

std::mutex g_mutex;

// Never destroyed, because a detached thread may still read it when the process ends.
platform::PropertyMap& Store() {
    static auto* store = new platform::PropertyMap();
    return *store;
}

// The hint for the next insertion, after the last property stored: callers that store many
// properties store them in ascending order.
platform::PropertyMap::iterator& Next() {
    static platform::PropertyMap::iterator next = Store().end();
    return next;
}

}  // namespace

namespace platform {

PropertyMap AllProperties() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return Store();
}

void ShowProperties(const std::function<void(const PropertyMap&)>& show) {
    std::lock_guard<std::mutex> lock(g_mutex);
    show(Store());
}

void ResetProperties(PropertyMap properties) {
    std::lock_guard<std::mutex> lock(g_mutex);
    Store() = std::move(properties);
    Next() = Store().end();
}

std::mutex& ChangeMutex() {
    static auto* mutex = new std::mutex();
    return *mutex;
}

std::optional<std::string> StoreProperty(const std::string& name, const std::string& value) {
    std::lock_guard<std::mutex> lock(g_mutex);
    const size_t before = Store().size();
    const auto property = Store().try_emplace(Next(), name, value);
    Next() = std::next(property);
    if (Store().size() != before) return std::nullopt;
    return std::exchange(property->second, value);
}

}  // namespace platform

namespace android {
namespace base {

std::string GetProperty(const std::string& key, const std::string& default_value) {
    if (auto* observer = platform::CurrentObserver()) observer->OnPropertyGet(key);
    std::lock_guard<std::mutex> lock(g_mutex);
    auto property = Store().find(key);
    if (property == Store().end() || property->second.empty()) return default_value;
    return property->second;
}

bool SetProperty(const std::string& key, const std::string& value) {
    if (key.empty()) return false;
    if (value.size() >= PROPERTY_VALUE_MAX && key.compare(0, 3, "ro.") != 0) return false;
    std::lock_guard<std::mutex> change(platform::ChangeMutex());
    platform::StoreProperty(key, value);
    if (auto* observer = platform::CurrentObserver()) observer->OnPropertySet(key, value);
    return true;
}

}  // namespace base
}  // namespace android

int property_get(const char* key, char* value, const char* default_value) {
    const std::string text =
            android::base::GetProperty(key, default_value == nullptr ? "" : default_value);
    size_t length = text.copy(value, PROPERTY_VALUE_MAX - 1);
    value[length] = '\0';
    return static_cast<int>(strlen(value));
}

int property_set(const char* key, const char* value) {
    return android::base::SetProperty(key, value == nullptr ? "" : value) ? 0 : -1;
}
