// Finds the variant of a device that a phone is, from its properties.

#pragma once

#include <string>
#include <vector>

#include "boot/boot.h"
#include "device/phone.h"

namespace extprop {

// Returns the property that has the axis's value on a phone, or null for kNvAxis, which has none.
const char* PropertyOf(int axis);

// A value of an axis that the phone has and the device cannot have.
struct MissingValue {
    int axis = 0;
    std::string value;
};

struct PhoneVariant {
    Variant variant;  // only the axes in which the phone is not like the device as it is
    Variant values;   // the phone's, reported or seen in boots, if the device can have them
    std::vector<MissingValue> missing;
    PropertyMap stored;  // its persistent properties that the device reads or sets
    std::vector<std::string> notes;

    // Returns what to add to the options to boot as this phone.
    Addition addition() const { return {variant, stored, {}}; }
};

// Finds the variant by boots of the device, which must be prepared with the options and must be
// reset afterwards. The options override what the phone reports; an empty value counts as none. A
// value that the device cannot have and a property that init refuses are no error: they are missing
// or noted. A boot that fails is no error either, but then the variant may be wrong. Throws as
// TakeSurvey, FindVariantSpace and PreparedDevice do.
PhoneVariant FindPhoneVariant(const Phone& phone, const BootOptions& options,
                              PreparedDevice* device);

// Returns text such as "the device has no region 'XX'".
std::string MissingText(const MissingValue& missing);

}  // namespace extprop
