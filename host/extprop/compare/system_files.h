// The property files that the system's own init loads by itself.

#pragma once

#include <algorithm>
#include <iterator>
#include <string>

#include "device/places.h"

namespace extprop {

// Returns whether the file at the device's `path`, which is not looked up, is one that init loads
// from /odm, or lies on another partition of the system's own and at no place of the library's.
// Files of a carrier package, which lies elsewhere, are the library's.
inline bool IsSystemsOwn(const std::string& path) {
    constexpr const char* kPartitions[] = {
            "/system", "/system_ext", "/system_dlkm", "/vendor",       "/vendor_dlkm",
            "/odm",    "/odm_dlkm",   "/product",     "/default.prop",
    };
    return IsSystems(path) && std::find(std::begin(kPartitions), std::end(kPartitions),
                                        PartitionOf(path)) != std::end(kPartitions);
}

}  // namespace extprop
