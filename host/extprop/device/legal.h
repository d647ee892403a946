// What init takes as a property.

#pragma once

#include <locale.h>

#include <optional>
#include <string>

namespace extprop {

// The system's encoding is UTF-8, on the phone always, here while this lives.
class Utf8Locale {
  public:
    // Throws std::runtime_error where there is no such locale. A sandbox has none: make one before
    // it is entered.
    Utf8Locale();
    ~Utf8Locale() { uselocale(previous_); }
    Utf8Locale& operator=(Utf8Locale&&) = delete;

  private:
    locale_t previous_;
};

// Whether the property is stored, and in force again after a reboot.
bool IsPersistent(const std::string& name);

// Returns why init refuses the property, by the library's own two functions, or nothing.
std::optional<std::string> WhyRefused(const std::string& name, const std::string& value);

}  // namespace extprop
