// EROFS images, with all features that image builders use.

#include <sys/stat.h>

#include <algorithm>

#include "../budget.h"
#include "erofs_data.h"
#include "erofs_directory.h"
#include "erofs_head.h"
#include "erofs_inode.h"
#include "file_system.h"

namespace images {

namespace {

constexpr uint64_t kMostTarget = 4095;

class Erofs : public FileSystem {
  public:
    Erofs(const Source& source, const erofs::Head& head) : inodes_(source, head) {
        if (!S_ISDIR(Look(root()).mode)) erofs::Fail(root(), "the root is not a directory");
    }

    uint64_t root() const override { return inodes_.head().root; }

    Node Look(uint64_t node) const override {
        const erofs::Inode inode = erofs::ReadInode(inodes_.head(), inodes_.Space(node), node);
        return {inode.id,   inode.mode,    inode.user,       inode.group,
                inode.size, inode.seconds, inode.nanoseconds};
    }

    std::vector<Name> List(uint64_t directory) const override {
        const auto data = Open(directory, S_IFDIR, "not a directory");
        if (data->size() > limits::kImageDirectory) {
            erofs::Fail(directory, "a directory of " + std::to_string(data->size()) +
                                           " bytes; the limit is " +
                                           std::to_string(limits::kImageDirectory));
        }
        return erofs::ParseDirectory(inodes_.head(), directory, ReadBytes(*data, 0, data->size()));
    }

    std::string Read(uint64_t file, uint64_t offset, size_t size) const override {
        const auto data = Open(file, S_IFREG, "not a regular file");
        if (offset >= data->size()) return "";
        return ReadBytes(*data, offset, std::min<uint64_t>(size, data->size() - offset));
    }

    std::string Target(uint64_t link) const override {
        const auto data = Open(link, S_IFLNK, "not a symbolic link");
        if (data->size() == 0 || data->size() > kMostTarget) {
            erofs::Fail(link, "a link's target of a wrong length");
        }
        std::string target = ReadBytes(*data, 0, data->size());
        if (target.find('\0') != target.npos) {
            erofs::Fail(link, "a link's target with a zero byte");
        }
        return target;
    }

  private:
    std::shared_ptr<const erofs::Data> Open(uint64_t node, mode_t type, const char* error) const {
        auto data = inodes_.Open(node);
        if ((data->inode().mode & S_IFMT) != type) erofs::Fail(node, error);
        return data;
    }

    const erofs::Inodes inodes_;
};

}  // namespace

std::unique_ptr<FileSystem> OpenErofs(const Source& source) {
    const auto head = erofs::ReadHead(source);
    if (!head) return nullptr;
    return std::make_unique<Erofs>(source, *head);
}

}  // namespace images
