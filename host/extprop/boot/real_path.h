// The device's own file behind a path, where links and bind mounts show it under other names.

#pragma once

#include <optional>
#include <string>
#include <vector>

namespace extprop {

// Returns the path without doubled and trailing slashes.
std::string PlainPath(const std::string& path);

// Returns the path of what is at `path` with no link in it. The last component may be missing; it
// is followed if it is a link only when `follow_last` is set. None if a directory on the way is
// missing or links lead in a circle.
std::optional<std::string> RealPath(const std::string& path, bool follow_last);

// The bind mounts that were made since the process began.
class BindMounts {
  public:
    // `source` was bound over `target`, both without links before that, with what is mounted below
    // it if `recursive`.
    void Add(const std::string& source, const std::string& target, bool recursive);

    // Returns the device's own path of what is at `path`, a last component that is a link not
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
