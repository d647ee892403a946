// Holds a device against a phone that it should be the image of.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "compare/phone_variant.h"
#include "explain/explain.h"

namespace extprop {

// A line of the device with what the phone has, or might have.
struct PhoneLine {
    Origin origin;
    bool is_system = false;  // of a file that the system's own init may load, and the library not
};

// A property that the two do not have alike.
struct ComparedProperty {
    std::string name;
    std::optional<std::string> device;  // none: the boot sets none
    std::optional<std::string> phone;   // none: the phone has none
    std::optional<Origin> origin;       // of the device's value
    // Of both: those with the phone's value. Of the phone alone: all with the name.
    std::vector<PhoneLine> phone_lines;
};

// A property of the phone that no file or operation of the library has.
struct OtherProperty {
    std::string name;
    std::string value;
    std::optional<Origin> line;  // of a file of the system's own that has the name
};

struct Comparison {
    std::string device;
    std::string phone;  // as it was named
    std::vector<MissingValue> missing;
    std::vector<std::string> words;  // those that make the device's boot the phone's
    PropertyMap given;               // that the boot was given, by these words or by hand
    std::vector<ComparedProperty> differs, only_device, only_phone;
    PropertyMap same;  // that the boot was not given
    std::vector<OtherProperty> others;
    std::vector<std::string> unknown;    // the patterns that nothing matches
    std::optional<BootFailure> failure;  // then nothing is compared

    bool is_alike() const { return differs.empty() && only_device.empty() && only_phone.empty(); }
};

// Boots the device as the phone that is called `name` and compares the properties whose names match
// one of the patterns, as in a shell. Makes `*report` the boot's. Throws as PreparedDevice and
// FindPhoneVariant do.
Comparison Compare(const BootOptions& options, const Phone& phone, const std::string& name,
                   const std::vector<std::string>& patterns, Report* report);

}  // namespace extprop
