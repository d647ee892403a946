#include "boot/real_path.h"

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <deque>
#include <mutex>
#include <unordered_map>

#include <android-base/strings.h>

namespace extprop {

namespace {

using android::base::StartsWith;

constexpr int kMostLinks = 40;  // the kernel's limit

// Puts the path's components before those that are still to be walked.
void PushFront(const std::string& path, std::deque<std::string>* components) {
    const std::vector<std::string> parts = android::base::Split(path, "/");
    components->insert(components->begin(), parts.begin(), parts.end());
}

// Walks the path component by component.
std::optional<std::string> Walk(const std::string& path, bool follow_last) {
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
        struct stat status;
        const bool exists = lstat(next.c_str(), &status) == 0;
        if (exists && S_ISLNK(status.st_mode) && (!is_last || follow_last)) {
            char target[PATH_MAX];
            const ssize_t size = readlink(next.c_str(), target, sizeof(target));
            if (size < 0 || ++links > kMostLinks) return std::nullopt;
            if (target[0] == '/') real.clear();
            PushFront(std::string(target, size), &components);
            continue;
        }
        if (!is_last && !exists) return std::nullopt;
        real = next;
    }
    return real.empty() ? "/" : real;
}

// Caches directories that were found. A later mount may change where they lead.
class KnownDirectories {
  public:
    std::optional<std::string> RealPathOf(const std::string& directory) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (auto known = real_.find(directory); known != real_.end()) return known->second;
        auto real = Walk(directory, true);
        if (real && access(real->c_str(), F_OK) != 0) real.reset();
        if (real) real_[directory] = *real;
        return real;
    }
    void Forget() {
        std::lock_guard<std::mutex> lock(mutex_);
        real_.clear();
    }

  private:
    std::mutex mutex_;
    std::unordered_map<std::string, std::string> real_;
};

KnownDirectories& Directories() {
    static auto* directories = new KnownDirectories();
    return *directories;
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
    const size_t slash = path.rfind('/');
    const std::string name = path.substr(slash == std::string::npos ? 0 : slash + 1);
    if (slash == std::string::npos || name.empty() || name == "." || name == "..") {
        return Walk(path, follow_last);
    }
    const auto directory = Directories().RealPathOf(path.substr(0, slash + 1));
    if (!directory) return std::nullopt;
    const std::string real = (*directory == "/" ? "" : *directory) + "/" + name;
    return follow_last ? Walk(real, true) : real;
}

void BindMounts::Add(const std::string& source, const std::string& target, bool recursive) {
    Directories().Forget();
    binds_.push_back({source, Below(source, binds_.size()), target, recursive});
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
        path = bind.source + rest;  // a recursive bind has what older binds show there
    }
    return path;
}

}  // namespace extprop
