// Finds the device's own file for a path. Links and bind mounts may show it under other names.

#pragma once

#include <optional>
#include <string>
#include <vector>

namespace extprop {

// Returns the path without doubled or trailing slashes; "/" stays. Looks at no file.
std::string PlainPath(const std::string& path);

// Returns the path, without links, of what is at `path`, which begins at "/" in any case. The last
// component may be missing; a link there is followed only if `follow_last` is set. Returns nothing
// if another one is missing or links form a cycle; a file on the way passes for a directory.
// Caches directories, so it does not notice other changes of them than BindMounts::Add().
std::optional<std::string> RealPath(const std::string& path, bool follow_last);

// The bind mounts that were made since the process began.
class BindMounts {
  public:
    // Records that `source` was bound over `target`; both must be the paths without links that they
    // had before the mount. With `recursive` the mounts below `source` were bound, too. Of several
    // binds that cover a path, the last one counts.
    void Add(const std::string& source, const std::string& target, bool recursive);

    // Returns the device's own path of what is at `path`, or PlainPath() if RealPath() returns
    // nothing. A link in the last component is not followed.
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
