// Any bytes as a report of a phone: they are refused in one line, or the properties in them are
// found again when printed as getprop prints them.

#include <algorithm>

#include "device.h"
#include "device/phone.h"
#include "input_error.h"

namespace {

using extprop::Phone;
using fuzz::Expect;
using fuzz::PropertyMap;

// Returns whether the property can be read back from what getprop prints.
bool CanBeListed(const std::string& name, const std::string& value) {
    const std::string text = name + value;
    return std::none_of(text.begin(), text.end(), [](char c) {
        return c == '[' || c == ']' || static_cast<unsigned char>(c) < ' ';
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Phone phone;
    try {
        phone = extprop::PhoneOf("phone", {reinterpret_cast<const char*>(data), size});
    } catch (const extprop::InputError& error) {
        Expect(std::string(error.what()).rfind("phone:", 0) == 0, "the name of what is refused");
        return 0;
    }
    Expect(!phone.properties.empty(), "properties");
    PropertyMap kept = {{"ro.kept", ""}};
    for (const auto& [name, value] : phone.properties) {
        if (CanBeListed(name, value)) kept[name] = value;
    }
    std::string listed;
    for (const auto& [name, value] : kept) listed += "[" + name + "]: [" + value + "]\n";
    Expect(extprop::PhoneOf("phone", listed).properties == kept, "what is listed");
    return 0;
}
