// Whether a directory can be a device's root at all.

#pragma once

#include <optional>
#include <string>

#include "device/device_tree.h"

namespace extprop {

// Returns what is said of a tree that has nothing at any place where the library reads.
std::optional<std::string> WhyNoDevice(const DeviceTree& tree);

}  // namespace extprop
