// Checks whether a directory can be a device's root.

#pragma once

#include <optional>
#include <string>

#include "device/device_tree.h"

namespace extprop {

// Returns nothing for a device's root. Returns a message, without a path, if the tree has nothing
// at any place that the library reads; it names the directory in the root that should be the root,
// if there is one. What cannot be read counts as missing.
std::optional<std::string> WhyNoDevice(const DeviceTree& tree);

}  // namespace extprop
