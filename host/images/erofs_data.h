// The data of EROFS inodes.

#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "erofs_head.h"
#include "erofs_inode.h"
#include "erofs_map.h"
#include "source.h"

namespace images::erofs {

class Inodes;

// The data of one inode of any type. Caches its extents, and what the last compressed one was
// decoded to.
class Data : public Source {
  public:
    // `inodes` must outlive this.
    Data(const Inodes& inodes, const Inode& inode) : inodes_(inodes), inode_(inode) {}

    const Inode& inode() const { return inode_; }
    uint64_t size() const override { return inode_.size; }
    void Read(uint64_t offset, void* to, size_t size) const override;

  private:
    [[noreturn]] void Fail(const std::string& what) const { erofs::Fail(inode_.id, what); }
    void ReadFrom(const Source& source, uint64_t place, char* to, size_t size) const;
    void ReadBlocks(uint64_t start, uint64_t offset, char* to, size_t size) const;
    void ReadInline(uint64_t offset, char* to, size_t size) const;
    void ReadChunks(uint64_t offset, char* to, size_t size) const;
    void ReadCompressed(uint64_t offset, char* to, size_t size) const;
    void ReadExtent(const Extent& extent, uint64_t length, uint64_t offset, char* to,
                    size_t size) const;
    void Decode(const Extent& extent, uint64_t length) const;

    const Inodes& inodes_;
    const Inode inode_;
    mutable std::vector<Extent> map_;  // filled on first use
    mutable uint64_t decoded_start_ = 0;
    mutable std::string decoded_;
};

// Finds the inodes of an image.
class Inodes {
  public:
    // `image` must outlive this.
    Inodes(const Source& image, const Head& head) : image_(image), head_(head) {}

    const Source& image() const { return image_; }
    const Head& head() const { return head_; }

    // Returns the source in which an inode and its tables lie: the image or the metabox. Throws
    // Damage if there is no metabox.
    const Source& Space(uint64_t id) const;

    // Returns the data of the inode with this number, which may be any. This must outlive them.
    // Caches those of the last calls. Throws Damage if there is no such inode or it is damaged.
    std::shared_ptr<const Data> Open(uint64_t id) const;

    // Returns the data of the packed inode, which the image must have: head().packed is not 0.
    // Throws Damage.
    const Data& Packed() const { return Special(head_.packed, &packed_); }

  private:
    const Data& Special(uint64_t id, std::unique_ptr<const Data>* data) const;

    const Source& image_;
    const Head head_;
    mutable std::unique_ptr<const Data> packed_;
    mutable std::unique_ptr<const Data> metabox_;
    mutable std::vector<std::shared_ptr<const Data>> open_;  // the most recent first
};

}  // namespace images::erofs
