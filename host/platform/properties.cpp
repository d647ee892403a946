// The one property store that both property interfaces of the device use. On a workstation libbase
// has a map without a lock, so its two functions are defined here again: the dynamic linker takes
// the first definition of a name, and everything here links this library before libbase.

#include <string.h>

#include <algorithm>
#include <mutex>
#include <utility>

#include <android-base/properties.h>
#include <cutils/properties.h>

#include "platform.h"

namespace {

using platform::ExpectedProperties;
using platform::ExpectedProperty;
using platform::PropertyMap;

std::mutex g_mutex;

// A property that has its expected value takes a mark; any other is in a map.
class Store {
  public:
    void Reset(PropertyMap properties, const ExpectedProperties* expected) {
        expected_ = expected == nullptr ? nullptr : expected->data();
        as_expected_.assign(expected == nullptr ? 0 : expected->size(), false);
        others_.clear();
        next_other_ = others_.end();
        if (expected == nullptr) {
            others_ = std::move(properties);
        } else {
            for (const auto& [name, value] : properties) Set(name, value);
        }
    }

    // Returns the property's value, or null.
    const std::string* Get(const std::string& name) {
        const size_t number = Find(name);
        if (number != kNone && as_expected_[number]) return expected_[number].value;
        const auto other = others_.find(name);
        return other == others_.end() ? nullptr : &other->second;
    }

    // Returns the property if it is expected with this value, or null.
    const ExpectedProperty* Expected(const std::string& name, const std::string& value) {
        const size_t number = Find(name);
        const bool is_so = number != kNone && *expected_[number].value == value;
        return is_so ? &expected_[number] : nullptr;
    }

    // Returns the previous value, if there was one.
    std::optional<std::string> Set(const std::string& name, const std::string& value) {
        const size_t number = Find(name);
        if (number == kNone) return SetOther(name, value);
        if (as_expected_[number]) {
            as_expected_[number] = value == *expected_[number].value;
            if (!as_expected_[number]) SetOther(name, value);
            return *expected_[number].value;
        }
        if (value != *expected_[number].value) return SetOther(name, value);
        as_expected_[number] = true;
        const auto other = others_.find(name);
        if (other == others_.end()) return std::nullopt;
        std::string previous = std::move(other->second);
        next_other_ = others_.erase(other);
        return previous;
    }

    PropertyMap All() const {
        PropertyMap all = others_;
        for (size_t number = 0; number < as_expected_.size(); ++number) {
            const ExpectedProperty& property = expected_[number];
            if (as_expected_[number]) all.emplace(*property.name, *property.value);
        }
        return all;
    }

    void Compare(PropertyMap* changed, std::vector<std::string>* removed) const {
        *changed = others_;
        for (size_t number = 0; number < as_expected_.size(); ++number) {
            const std::string& name = *expected_[number].name;
            if (!as_expected_[number] && others_.count(name) == 0) removed->push_back(name);
        }
    }

  private:
    static constexpr size_t kNone = -1;

    // Returns the number of the expected property, or kNone.
    size_t Find(const std::string& name) {
        const size_t size = as_expected_.size();
        const auto is_at = [&](size_t number) {
            return number < size && *expected_[number].name == name;
        };
        // Callers that store many properties store them in ascending order.
        if (is_at(last_)) return last_;
        if (is_at(last_ + 1)) return ++last_;
        last_ = std::lower_bound(expected_, expected_ + size, name,
                                 [](const ExpectedProperty& a, const std::string& b) {
                                     return *a.name < b;
                                 }) -
                expected_;
        return is_at(last_) ? last_ : kNone;
    }

    std::optional<std::string> SetOther(const std::string& name, const std::string& value) {
        const size_t before = others_.size();
        const auto other = others_.try_emplace(next_other_, name, value);
        next_other_ = std::next(other);
        if (others_.size() != before) return std::nullopt;
        return std::exchange(other->second, value);
    }

    const ExpectedProperty* expected_ = nullptr;
    std::vector<bool> as_expected_;  // by the number of the expected property
    PropertyMap others_;
    size_t last_ = 0;                                   // the expected property found last
    PropertyMap::iterator next_other_ = others_.end();  // the one after the last one set
};

// Never destroyed, because a detached thread may still read it when the process ends.
Store& TheStore() {
    static auto* store = new Store();
    return *store;
}

}  // namespace

namespace platform {

PropertyMap AllProperties() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return TheStore().All();
}

void CompareProperties(PropertyMap* changed, std::vector<std::string>* removed) {
    std::lock_guard<std::mutex> lock(g_mutex);
    TheStore().Compare(changed, removed);
}

void ResetProperties(PropertyMap properties, const ExpectedProperties* expected) {
    std::lock_guard<std::mutex> lock(g_mutex);
    TheStore().Reset(std::move(properties), expected);
}

std::mutex& ChangeMutex() {
    static auto* mutex = new std::mutex();
    return *mutex;
}

bool IsExpected(const std::string& name, const std::string& value) {
    std::lock_guard<std::mutex> lock(g_mutex);
    const ExpectedProperty* const property = TheStore().Expected(name, value);
    return property != nullptr && property->is_legal;
}

std::optional<std::string> StoreProperty(const std::string& name, const std::string& value) {
    std::lock_guard<std::mutex> lock(g_mutex);
    return TheStore().Set(name, value);
}

}  // namespace platform

namespace android {
namespace base {

std::string GetProperty(const std::string& key, const std::string& default_value) {
    if (auto* observer = platform::CurrentObserver()) observer->OnPropertyGet(key);
    std::lock_guard<std::mutex> lock(g_mutex);
    const std::string* const value = TheStore().Get(key);
    return value == nullptr || value->empty() ? default_value : *value;
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
