// Checks which properties init accepts.

#pragma once

#include <locale.h>

#include <optional>
#include <string>

namespace extprop {

// Sets the thread's encoding to UTF-8, as on a phone, while the object exists.
class Utf8Locale {
  public:
    // Throws std::runtime_error if there is no such locale. A sandbox has none, so make the object
    // before entering one.
    Utf8Locale();
    ~Utf8Locale() { uselocale(previous_); }
    Utf8Locale& operator=(Utf8Locale&&) = delete;

  private:
    locale_t previous_;
};

// Returns whether the property is stored and so takes effect again after a reboot.
bool IsPersistent(const std::string& name);

// Returns why init refuses the property, according to the library's own two functions, or nothing.
// Takes any text as name and value. Throws as Utf8Locale() does.
std::optional<std::string> WhyRefused(const std::string& name, const std::string& value);

// Returns the message on a given property that is refused for the reason, which WhyRefused() gave.
std::string RefusedPropertyText(const std::string& name, const std::string& reason);

}  // namespace extprop
