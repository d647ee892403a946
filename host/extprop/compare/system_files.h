// The property files that the system's own init loads by itself.

#pragma once

#include <algorithm>
#include <string>

#include "device/places.h"

namespace extprop {

// Whether the file lies on a partition of the system's own, other than the library's places there.
// A carrier package, which lies elsewhere, is the library's.
inline bool IsSystemsOwn(const std::string& path) {
    constexpr const char* kPartitions[] = {
            "/system", "/system_ext", "/system_dlkm", "/vendor",       "/vendor_dlkm",
            "/odm",    "/odm_dlkm",   "/product",     "/default.prop",
    };
    return IsSystems(path) && std::find(std::begin(kPartitions), std::end(kPartitions),
                                        PartitionOf(path)) != std::end(kPartitions);
}

}  // namespace extprop
