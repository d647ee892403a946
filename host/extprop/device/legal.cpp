#include "device/legal.h"

#include <errno.h>

#include <stdexcept>

#include <android-base/strings.h>

#include "utils.h"

namespace extprop {

Utf8Locale::Utf8Locale() {
    static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (utf8 == locale_t()) throw std::runtime_error("the locale C.UTF-8 is missing");
    previous_ = uselocale(utf8);
}

bool IsPersistent(const std::string& name) {
    return android::base::StartsWith(name, "persist.");
}

std::optional<std::string> WhyRefused(const std::string& name, const std::string& value) {
    if (!IsLegalPropertyName(name)) return "illegal name";
    const Utf8Locale utf8;
    const auto legal = IsLegalPropertyValue(name, value);
    if (legal.ok()) return std::nullopt;
    // The message ends with the text of an errno that has nothing to do with the error.
    const std::string message = legal.error().message();
    return message.substr(0, message.rfind(": "));
}

std::string RefusedPropertyText(const std::string& name, const std::string& reason) {
    return "no phone has the property '" + name + "': " + reason;
}

}  // namespace extprop
