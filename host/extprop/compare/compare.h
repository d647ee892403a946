// Compares a device with the phone whose image it should be.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "compare/phone_variant.h"
#include "explain/explain.h"

namespace extprop {

// A line of the device's files that may be where the phone's value comes from.
struct PhoneLine {
    Origin origin;
    bool is_system = false;  // of a file that the system's own init may load, but not the library
};

// A property in which the device and the phone differ.
struct ComparedProperty {
    std::string name;
    std::optional<std::string> device;  // none: the boot sets none
    std::optional<std::string> phone;   // none: the phone has none
    std::optional<Origin> origin;       // of the device's value
    // If both have the property, the lines with the phone's value; if only the phone has it, all
    // lines with the name.
    std::vector<PhoneLine> phone_lines;
};

// A property of the phone that is not the library's: no file or operation of the library sets it.
struct OtherProperty {
    std::string name;
    std::string value;
    std::optional<Origin> line;  // with the name, in a file of the system's own
};

struct Comparison {
    std::string device;  // as in the report
    std::string phone;   // the name that the user gave
    std::vector<MissingValue> missing;
    std::vector<std::string> words;  // with which the device boots as the phone
    PropertyMap given;               // to the boot, by these words or by the user
    std::vector<ComparedProperty> differs, only_device, only_phone;
    PropertyMap same;  // without those given
    std::vector<OtherProperty> others;
    std::vector<std::string> unknown;    // patterns that match no property that is compared
    std::optional<BootFailure> failure;  // if set, nothing was compared

    bool is_alike() const { return differs.empty() && only_device.empty() && only_phone.empty(); }
};

// Boots the device as the phone, and compares the properties whose names match one of the patterns,
// as in a shell; none without a pattern, and only persistent ones with Phone::only_persistent.
// `name` is the name of the phone in messages. Puts the boot's report into `*report`. A crash or
// hang of the library is the result's failure. Throws as PreparedDevice and FindPhoneVariant do.
Comparison Compare(const BootOptions& options, const Phone& phone, const std::string& name,
                   const std::vector<std::string>& patterns, Report* report);

}  // namespace extprop
