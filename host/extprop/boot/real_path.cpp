#include "boot/real_path.h"

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <deque>

#include <android-base/strings.h>

namespace extprop {

namespace {

using android::base::StartsWith;

constexpr int kMostLinks = 40;  // as the kernel has it

// Puts the path's components before those that are still to be walked.
void PushFront(const std::string& path, std::deque<std::string>* components) {
    const std::vector<std::string> parts = android::base::Split(path, "/");
    components->insert(components->begin(), parts.begin(), parts.end());
}

bool IsLink(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

}  // namespace

std::string PlainPath(const std::string& path) {
    std::string plain;
    for (const char c : path) {
        if (c != '/' || plain.empty() || plain.back() != '/') plain += c;
    }
    if (plain.size() > 1 && plain.back() == '/') plain.pop_back();
    return plain;
}

std::optional<std::string> RealPath(const std::string& path, bool follow_last) {
    std::deque<std::string> components;
    PushFront(path, &components);
    std::string real;
    int links = 0;
    while (!components.empty()) {
        const std::string component = components.front();
        components.pop_front();
        if (component.empty() || component == ".") continue;
        if (component == "..") {
            real.erase(real.empty() ? 0 : real.rfind('/'));
            continue;
        }
        const std::string next = real + "/" + component;
        const bool is_last = components.empty();
        if ((!is_last || follow_last) && IsLink(next)) {
            char target[PATH_MAX];
            const ssize_t size = readlink(next.c_str(), target, sizeof(target));
            if (size < 0 || ++links > kMostLinks) return std::nullopt;
            if (target[0] == '/') real.clear();
            PushFront(std::string(target, size), &components);
            continue;
        }
        if (!is_last && access(next.c_str(), F_OK) != 0) return std::nullopt;
        real = next;
    }
    return real.empty() ? "/" : real;
}

void BindMounts::Add(const std::string& source, const std::string& target, bool recursive) {
    const auto real_source = RealPath(source, true);
    const auto real_target = RealPath(target, true);
    if (!real_source || !real_target) return;
    binds_.push_back({*real_source, Below(*real_source, binds_.size()), *real_target, recursive});
}

std::string BindMounts::OwnPath(const std::string& path) const {
    const auto real = RealPath(path, false);
    return real ? Below(*real, binds_.size()) : PlainPath(path);
}

// Returns the device's own path of what the oldest `binds` binds show at `path`.
std::string BindMounts::Below(std::string path, size_t binds) const {
    for (size_t i = binds; i-- > 0;) {  // the newest hides the others
        const Bind& bind = binds_[i];
        if (path != bind.target && !StartsWith(path, bind.target + "/")) continue;
        const std::string rest = path.substr(bind.target.size());
        if (!bind.recursive) return bind.own_source + rest;
        path = bind.source + rest;  // what older binds show there came along
    }
    return path;
}

}  // namespace extprop
