#include "image_tree.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <new>

#include <android-base/unique_fd.h>

#include "../budget.h"
#include "../kernel.h"

using android::base::unique_fd;

namespace sandbox {

namespace {

// What an item of a cache takes besides its text, in bytes.
constexpr size_t kOverhead = 128;

constexpr size_t kChunk = 256 * 1024;
constexpr size_t kPage = 4096;

constexpr blksize_t kBlock = 4096;
constexpr off_t kSector = 512;

}  // namespace

ImageTree::ImageTree(std::unique_ptr<images::FileSystem> files, int nothing, OnDamage on_damage)
        : files_(std::move(files)), nothing_(nothing), on_damage_(std::move(on_damage)) {}

// Returns the function's result. If the function throws, reports the damage and returns -EIO.
long ImageTree::Guard(const std::string& path, const std::function<long()>& function) const try {
    if (kept_ > limits::kImageKept) {
        directories_.clear();
        names_.clear();
        nodes_.clear();
        places_.clear();
        kept_ = 0;
    }
    return function();
} catch (const std::bad_alloc&) {
    throw;
} catch (const std::exception& error) {
    on_damage_(path, error.what());
    return -EIO;
}

const images::Node& ImageTree::Look(uint64_t node) const {
    const auto [known, is_new] = nodes_.try_emplace(node);
    if (!is_new) return known->second;
    try {
        known->second = files_->Look(node);
    } catch (...) {
        nodes_.erase(known);
        throw;
    }
    kept_ += sizeof(images::Node) + kOverhead;
    return known->second;
}

const ImageTree::Names& ImageTree::NamesIn(uint64_t directory) const {
    const auto known = names_.find(directory);
    if (known != names_.end()) return known->second;
    Names names;
    for (auto& [name, node] : files_->List(directory)) {
        kept_ += name.size() + kOverhead;
        names.emplace(std::move(name), node);
    }
    return names_.emplace(directory, std::move(names)).first->second;
}

// Finds the node at the path, walking from the nearest directory that is known.
long ImageTree::Find(const std::string& path, uint64_t* node) const {
    size_t known = path.size();
    auto nearest = directories_.find(path);
    while (nearest == directories_.end() && known != 0) {
        known = path.rfind('/', known - 1);
        nearest = directories_.find(path.substr(0, known));
    }
    *node = nearest == directories_.end() ? files_->root() : nearest->second;
    while (known < path.size()) {
        const size_t end = std::min(path.find('/', known + 1), path.size());
        const Names& names = NamesIn(*node);
        const auto found = names.find(path.substr(known + 1, end - known - 1));
        if (found == names.end()) return -ENOENT;
        *node = found->second;
        known = end;
        if (known == path.size()) break;
        if (!S_ISDIR(Look(*node).mode)) return -ENOTDIR;
        Enter(path.substr(0, known), *node);
    }
    return 0;
}

// Records the directory's place. A directory at two places is damage: one that contains itself
// would make walks endless.
void ImageTree::Enter(const std::string& path, uint64_t node) const {
    const auto [place, is_new] = places_.try_emplace(node, node == files_->root() ? "/" : path);
    if (place->second != path) throw images::Damage("the same directory as " + place->second);
    directories_.emplace(path, node);
    if (is_new) kept_ += 2 * (path.size() + kOverhead);
}

long ImageTree::Status(const std::string& path, struct stat* status) const {
    return Guard(path, [&]() -> long {
        uint64_t number;
        if (long error = Find(path, &number); error < 0) return error;
        const images::Node& node = Look(number);
        *status = {};
        status->st_ino = number;
        status->st_mode = node.mode;
        status->st_nlink = 1;
        status->st_size = static_cast<off_t>(std::min<uint64_t>(node.size, INT64_MAX));
        status->st_blksize = kBlock;
        status->st_blocks = (status->st_size + kSector - 1) / kSector;
        status->st_mtim = {static_cast<time_t>(node.seconds), static_cast<long>(node.nanoseconds)};
        status->st_atim = status->st_ctim = status->st_mtim;
        return 0;
    });
}

long ImageTree::Target(const std::string& path, std::string* target) const {
    return Guard(path, [&]() -> long {
        uint64_t number;
        if (long error = Find(path, &number); error < 0) return error;
        if (!S_ISLNK(Look(number).mode)) return -EINVAL;
        *target = files_->Target(number);
        return static_cast<long>(target->size());
    });
}

long ImageTree::List(const std::string& directory, std::vector<Listed>* names) const {
    return Guard(directory, [&]() -> long {
        uint64_t number;
        if (long error = Find(directory, &number); error < 0) return error;
        if (!S_ISDIR(Look(number).mode)) return -ENOTDIR;
        const size_t before = names->size();
        for (const auto& [name, node] : NamesIn(number)) names->push_back({name, DT_UNKNOWN});
        std::sort(names->begin() + static_cast<ptrdiff_t>(before), names->end(),
                  [](const Listed& a, const Listed& b) { return a.name < b.name; });
        return 0;
    });
}

long ImageTree::Open(const std::string& path, int flags) const {
    return Guard(path, [&]() -> long {
        uint64_t number;
        if (long error = Find(path, &number); error < 0) return error;
        const images::Node& node = Look(number);
        if (S_ISDIR(node.mode)) return Kernel(SYS_openat, nothing_, ".", flags, 0);
        if ((flags & O_DIRECTORY) != 0) return -ENOTDIR;
        if (S_ISLNK(node.mode)) return -ELOOP;
        return S_ISREG(node.mode) ? OpenContent(node, flags) : -ENXIO;
    });
}

// Puts the file's content into a file in memory, with holes for zeros, and opens that.
long ImageTree::OpenContent(const images::Node& node, int flags) const {
    const long fd = Kernel(SYS_memfd_create, "image",
                           MFD_ALLOW_SEALING | ((flags & O_CLOEXEC) != 0 ? MFD_CLOEXEC : 0));
    if (fd < 0) return fd;
    unique_fd file(static_cast<int>(fd));
    if (long error = Kernel(SYS_ftruncate, fd, node.size); error < 0) return error;
    for (uint64_t at = 0; at < node.size;) {
        const std::string part =
                files_->Read(node.id, at, std::min<uint64_t>(kChunk, node.size - at));
        if (part.empty()) throw images::Damage("truncated");
        static const std::string zero(kPage, '\0');
        for (size_t begin = 0; begin < part.size(); begin += kPage) {
            const size_t size = std::min(kPage, part.size() - begin);
            if (part.compare(begin, size, zero, 0, size) == 0) continue;
            const long written = Kernel(SYS_pwrite64, fd, part.data() + begin, size, at + begin);
            if (written != static_cast<long>(size)) return written < 0 ? written : -EIO;
        }
        at += part.size();
    }
    if (long error = Kernel(SYS_fchmod, fd, node.mode & 0777); error < 0) return error;
    if (long error = Kernel(SYS_fcntl, fd, F_ADD_SEALS,
                            F_SEAL_WRITE | F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL);
        error < 0) {
        return error;
    }
    return file.release();
}

}  // namespace sandbox
