// What the installing service's messages have mounted: a carrier package, or a module of one.

#pragma once

#include <optional>
#include <string>
#include <vector>

namespace extprop {

struct Mount {
    std::string source;  // as the message names it
    std::string target;  // the device's own path, over which it is mounted

    // Returns the device's own path of what is shown at `path`, if that is below the target.
    std::optional<std::string> Shown(const std::string& path) const;
};

// Reads the messages, in a process inside the sandbox, without the library: whoever asks does so
// where the library may not come back from them.
std::vector<Mount> FindMounts();

}  // namespace extprop
