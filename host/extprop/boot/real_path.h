// Finds the device's own file for a path. Links and bind mounts may show it under other names.

#pragma once

#include <optional>
#include <string>
#include <vector>

namespace extprop {

// Returns the path without doubled or trailing slashes.
std::string PlainPath(const std::string& path);

// Returns the path, without links, of what is at `path`. The last component may be missing; if it
// is a link, it is followed only if `follow_last` is set. Returns nothing if a directory on the way
// is missing or links lead in a circle.
std::optional<std::string> RealPath(const std::string& path, bool follow_last);

// The bind mounts that were made since the process began.
class BindMounts {
  public:
    // Records that `source` was bound over `target`; both paths contained no link before that. With
    // `recursive` the mounts below `source` were bound, too.
    void Add(const std::string& source, const std::string& target, bool recursive);

    // Returns the device's own path of what is at `path`. A link in the last component is not
    // followed.
    std::string OwnPath(const std::string& path) const;

  private:
    struct Bind {
        std::string source;
        std::string own_source;  // beneath all older binds
        std::string target;
        bool recursive;
    };

    std::string Below(std::string path, size_t binds) const;

    std::vector<Bind> binds_;
};

}  // namespace extprop
