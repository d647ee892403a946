// Checks whether a directory can be a device's root.

#pragma once

#include <optional>
#include <string>

#include "device/device_tree.h"

namespace extprop {

// Returns a message if the tree has nothing at any place that the library reads, else nothing.
std::optional<std::string> WhyNoDevice(const DeviceTree& tree);

}  // namespace extprop
