// The variant of a device that a phone says it is.

#pragma once

#include <string>
#include <vector>

#include "boot/boot.h"
#include "device/phone.h"

namespace extprop {

// Returns the property that tells the axis's value on a phone, null of one that no phone tells.
const char* PropertyOf(int axis);

// What a phone is and the device cannot be.
struct MissingValue {
    int axis = 0;
    std::string value;
};

struct PhoneVariant {
    Variant variant;  // in what the phone is not as the device by itself
    Variant values;   // what it is, of every axis that it tells and the device can be
    std::vector<MissingValue> missing;
    PropertyMap stored;  // its persistent properties that anything of the device asks for or sets
    std::vector<std::string> notes;

    // What is added to the options to boot as this phone.
    Addition addition() const { return {variant, stored, {}}; }
};

// Finds it by boots of the device, which is prepared with the options and has to be reset after it.
// What they say is so, whatever the phone says. Throws std::runtime_error as TakeSurvey and
// FindVariantSpace do.
PhoneVariant FindPhoneVariant(const Phone& phone, const BootOptions& options,
                              PreparedDevice* device);

// Such as "the device has no region 'XX'".
std::string MissingText(const MissingValue& missing);

}  // namespace extprop
