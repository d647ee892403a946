// The mounts for which the installing service's messages ask: a carrier package, or a module.

#pragma once

#include <optional>
#include <string>
#include <vector>

namespace extprop {

struct Mount {
    std::string source;  // as in the message
    std::string target;  // the device's own path, over which it is mounted

    // Returns the device's own path of what is shown at `path`, whose last name may be missing
    // there; nothing if another one is, or if `path` is not below the target. Call it inside the
    // sandbox.
    std::optional<std::string> Shown(const std::string& path) const;
};

// Reads the messages. Returns a mount for each message that names an existing directory by its
// absolute path, unless the target is the same or its directory is missing. Call it inside the
// sandbox. It does not call the library, since it is used where the library may hang on them.
std::vector<Mount> FindMounts();

}  // namespace extprop
