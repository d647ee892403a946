#include "image_files.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "checks.h"

using android::base::unique_fd;

namespace sandbox {

namespace {

// A file system whose root is a directory of another one.
class PartOfFileSystem : public images::FileSystem {
  public:
    PartOfFileSystem(std::unique_ptr<images::FileSystem> files, uint64_t root)
            : files_(std::move(files)), root_(root) {}

    uint64_t root() const override { return root_; }
    images::Node Look(uint64_t node) const override { return files_->Look(node); }
    std::vector<images::Name> List(uint64_t node) const override { return files_->List(node); }
    std::string Read(uint64_t node, uint64_t offset, size_t size) const override {
        return files_->Read(node, offset, size);
    }
    std::string Target(uint64_t node) const override { return files_->Target(node); }

  private:
    std::unique_ptr<images::FileSystem> files_;
    uint64_t root_;
};

// A file system that is opened when its root directory is first looked into.
class LazyFileSystem : public images::FileSystem {
  public:
    using Open = std::function<std::unique_ptr<images::FileSystem>()>;

    explicit LazyFileSystem(Open open) : open_(std::move(open)) {}

    uint64_t root() const override { return kRoot; }
    images::Node Look(uint64_t node) const override {
        if (node != kRoot) return opened().Look(node);
        images::Node root;
        root.id = kRoot;
        root.mode = S_IFDIR | 0755;
        return root;
    }
    std::vector<images::Name> List(uint64_t node) const override {
        return opened().List(node == kRoot ? opened().root() : node);
    }
    std::string Read(uint64_t node, uint64_t offset, size_t size) const override {
        return opened().Read(node, offset, size);
    }
    std::string Target(uint64_t node) const override { return opened().Target(node); }

  private:
    static constexpr uint64_t kRoot = ~uint64_t{0};  // a node that no image has

    const images::FileSystem& opened() const {
        if (files_ == nullptr) files_ = open_();
        return *files_;
    }

    Open open_;
    mutable std::unique_ptr<images::FileSystem> files_;
};

}  // namespace

unique_fd OpenNamed(const std::string& path) {
    struct stat status;
    unique_fd file;
    const auto is_usable = [&status] { return S_ISREG(status.st_mode) || S_ISBLK(status.st_mode); };
    Check(stat(path.c_str(), &status) == 0, "cannot be opened");
    if (is_usable()) {
        file.reset(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        Check(file.ok() && fstat(file.get(), &status) == 0, "cannot be opened");
    }
    if (!is_usable()) throw std::runtime_error("neither a file nor a block device");
    return file;
}

unique_fd OpenInDevice(const View& view, const std::string& image, const std::string& path) {
    const std::string advice =
            image.empty() ? "" : "; --image " + image + "=FILE reads an image that lies anywhere";
    ResolvedPath link, entry;
    view.Find(path, false, &link);
    const long error = view.Find(path, true, &entry);
    if (link.is_link() && (error < 0 || !entry.exists)) {
        throw std::runtime_error("a link that leads to no file in the device directory" + advice);
    }
    if (S_ISBLK(entry.status.st_mode)) {
        throw std::runtime_error("a block device in DEVICE, which is not opened" + advice);
    }
    const long fd = view.OpenToRead(path, true);
    if (fd == -ENXIO || fd == -EISDIR) throw std::runtime_error("not a file");
    errno = static_cast<int>(-fd);
    Check(fd >= 0, "cannot be opened");
    return unique_fd(static_cast<int>(fd));
}

const char* WhatIs(images::Kind kind) {
    switch (kind) {
        case images::Kind::kFileSystem:
            return "an image of one partition";
        case images::Kind::kSuper:
            return "a super partition";
        case images::Kind::kPayload:
            return "an update's payload";
        case images::Kind::kArchive:
            return "an archive";
        case images::Kind::kUnknown:
            break;
    }
    return "a file of no known format";
}

std::unique_ptr<images::FileSystem> PartOf(std::unique_ptr<images::FileSystem> files,
                                           uint64_t directory) {
    return std::make_unique<PartOfFileSystem>(std::move(files), directory);
}

std::unique_ptr<images::FileSystem> OpenedLater(
        std::function<std::unique_ptr<images::FileSystem>()> open) {
    return std::make_unique<LazyFileSystem>(std::move(open));
}

}  // namespace sandbox
