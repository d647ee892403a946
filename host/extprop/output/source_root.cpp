#include "output/source_root.h"

#include <ctype.h>

#include <filesystem>
#include <string_view>

#include "input_error.h"

namespace extprop {

namespace {

namespace fs = std::filesystem;

fs::path Canonical(const std::string& path) {
    std::error_code error;
    fs::path canonical = fs::canonical(path, error);
    if (error) throw InputError(path + ": " + error.message());
    return canonical;
}

// Returns the nearest directory, this one or one above it, that is the root of a work tree, or "".
fs::path WorkTreeOf(fs::path directory) {
    while (true) {
        std::error_code error;
        if (fs::exists(directory / ".git", error)) return directory;
        if (directory == directory.parent_path()) return {};
        directory = directory.parent_path();
    }
}

}  // namespace

SourceRoot::SourceRoot(const std::string& device) {
    const fs::path path = Canonical(device);
    const fs::path root = WorkTreeOf(path);
    is_device_ = root.empty();
    directory_ = is_device_ ? path : root;
    SetDevice(device);
}

SourceRoot::SourceRoot(const std::string& device, const std::string& root)
        : directory_(Canonical(root)) {
    SetDevice(device);
}

void SourceRoot::SetDevice(const std::string& device) {
    const fs::path below = Canonical(device).lexically_relative(directory_);
    if (below.empty() || *below.begin() == "..") {
        throw InputError(device + ": this does not lie in the source root " + directory_);
    }
    if (below != ".") device_ = below.string() + "/";
}

std::string SourceRoot::PathTo(const std::string& path) const {
    // A path on the device begins with a slash.
    if (!path.empty()) return device_ + path.substr(1);
    return device_.empty() ? "." : device_.substr(0, device_.size() - 1);
}

std::string PathInWorkTree(const std::string& file) {
    std::error_code error;
    const fs::path path = fs::canonical(file, error);
    const fs::path root = error ? fs::path() : WorkTreeOf(path.parent_path());
    return root.empty() ? fs::path(file).lexically_normal().string()
                        : path.lexically_relative(root).string();
}

std::string UriOf(const std::string& path) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    constexpr std::string_view kPlain = "/-._~";
    std::string uri;
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte < 0x80 && isalnum(byte) != 0) || kPlain.find(c) != std::string_view::npos) {
            uri += c;
        } else {
            uri += {'%', kDigits[byte / 16], kDigits[byte % 16]};
        }
    }
    return uri;
}

}  // namespace extprop
