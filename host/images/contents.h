// The content of an image file: sparse images, compression, updates, archives and super partitions
// are unpacked down to file systems.

#pragma once

#include <stddef.h>

#include <memory>
#include <vector>

#include "archives.h"
#include "file_system.h"
#include "payload.h"
#include "reader.h"
#include "spool.h"
#include "super.h"

namespace images {

class Contents {
  public:
    // Determines what the file holds. `parts` has one source, or those of a split sparse image.
    // `slot`, 'a' or 'b', chooses the metadata of a super partition. The spool must outlive this.
    // Throws Damage if the file is damaged; content of an unknown kind is kUnknown.
    Contents(std::vector<std::unique_ptr<Source>> parts, char slot, Spool* spool);

    Kind kind() const { return kind_; }

    // In the order of the file's own table, which may be empty. A name may be any bytes.
    const std::vector<Volume>& volumes() const { return volumes_; }

    // Returns the file system in the volume with this index, or the archive for an archive's only
    // volume; it lives as long as this. Unpacks a partition of a payload, once. Throws Damage if
    // there is no such volume, or no file system in it that can be read.
    const FileSystem& Open(size_t volume);

    // Decompresses the file completely, so that no later read has to. Does not unpack what is in
    // it: the partitions of a payload, the members of an archive. Throws Damage.
    void Unpack() const;

    // Returns the bytes of a file of the archive, as Archive::Content() does. Throws Damage if the
    // content is no archive.
    std::unique_ptr<Source> Inside(uint64_t file) const;

  private:
    // Appends the image that the last source stands for, if that is a sparse image.
    void Unwrap();
    void AddUnpacked();
    const Source& content() const { return *sources_.back(); }

    char slot_;
    Spool* spool_;
    std::vector<std::unique_ptr<Source>> sources_;  // each reads from those before it
    Kind kind_ = Kind::kFileSystem;
    std::unique_ptr<Super> super_;
    std::unique_ptr<Payload> payload_;
    std::unique_ptr<Archive> archive_;
    std::vector<Volume> volumes_;

    struct Opened {
        std::unique_ptr<Source> content;
        std::unique_ptr<FileSystem> file_system;
    };
    std::vector<Opened> opened_;
};

}  // namespace images
