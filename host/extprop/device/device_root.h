// Checks whether a directory can be a device's root.

#pragma once

#include <optional>
#include <string>

#include "device/device_tree.h"

namespace extprop {

// Returns a message, without a path, if the tree has nothing at any place that the library reads;
// it names the directory in the root that has, if one does. Returns nothing for a device's root.
std::optional<std::string> WhyNoDevice(const DeviceTree& tree);

}  // namespace extprop
