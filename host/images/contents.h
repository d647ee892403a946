// What an image file holds, whatever it is packed in.

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
    // Looks at the file that `parts` are, of which there are several only if it is a split sparse
    // image. `slot` is for a super partition. The spool must live as long. Throws Damage if it
    // holds nothing that can be read.
    Contents(std::vector<std::unique_ptr<Source>> parts, char slot, Spool* spool);

    Kind kind() const { return kind_; }

    // In the order of the file's own table; any bytes may be a name.
    const std::vector<Volume>& volumes() const { return volumes_; }

    // Returns the volume's file system. Throws Damage if it has none that can be read.
    const FileSystem& Open(size_t volume);

    // Unpacks all of what the file is packed in. Throws Damage.
    void Unpack() const;

    // Returns the bytes of a file of an archive. Throws Damage if this is none.
    std::unique_ptr<Source> Inside(uint64_t file) const;

  private:
    // Puts what the last source stands for after it.
    void Unwrap();
    void AddUnpacked();
    const Source& content() const { return *sources_.back(); }

    char slot_;
    Spool* spool_;
    std::vector<std::unique_ptr<Source>> sources_;  // each of those before it
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
