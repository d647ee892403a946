#include "tar_archive.h"

#include <string.h>
#include <sys/stat.h>

#include <algorithm>

#include "../budget.h"
#include "libarchive.h"
#include "sources.h"

namespace images {

namespace {

// Where a tar header has its magic number.
constexpr uint64_t kMagicOffset = 257;
constexpr uint64_t kRecord = 512;
constexpr char kUstar[] = {'u', 's', 't', 'a', 'r'};

bool IsTar(const Source& source) {
    char magic[sizeof(kUstar)] = {};
    source.ReadUpTo(kMagicOffset, magic, sizeof(magic));
    return memcmp(magic, kUstar, sizeof(kUstar)) == 0;
}

// The data of a member that are not stored in one piece.
class MemberData : public Stream {
  public:
    MemberData(const Source& tar, uint64_t header) : archive_(tar, header) {
        archive_.Support(archive_read_support_format_tar);
        archive_.Open();
        archive_.Next();
    }

    size_t Next(char* to, size_t size) override { return archive_.Read(to, size); }

  private:
    ArchiveReader archive_;
};

class Tar : public Archive {
  public:
    Tar(const Source& source, Spool* spool) : tar_(source), spool_(spool) {
        ArchiveReader archive(tar_, 0);
        archive.Support(archive_read_support_format_tar);
        archive.Open();
        uint64_t end = 0;
        while (archive_entry* entry = archive.Next()) {
            Add(archive, entry);
            const uint64_t size = archive_entry_sparse_count(entry) > 0 ? 0 : SizeOf(entry);
            end = archive.data() + (size + kRecord - 1) / kRecord * kRecord;
        }
        // The library accepts an archive without its end, which is a record of zeros.
        char byte;
        if (tar_.ReadUpTo(end, &byte, sizeof(byte)) == 0) throw Damage("truncated");
    }

    uint64_t root() const override { return MemberTree::kRoot; }
    Node Look(uint64_t node) const override { return tree_.Look(node); }
    std::vector<Name> List(uint64_t directory) const override { return tree_.List(directory); }
    std::string Target(uint64_t link) const override { return tree_.Target(link); }

    std::string Read(uint64_t file, uint64_t offset, size_t size) const override {
        std::string bytes(std::min<uint64_t>(size, tree_.File(file).size), '\0');
        bytes.resize(Content(file)->ReadUpTo(offset, bytes.data(), bytes.size()));
        return bytes;
    }

    std::unique_ptr<Source> Content(uint64_t file) const override {
        const uint64_t size = tree_.File(file).size;
        const Location& location = locations_.at(file);
        if (!location.is_sparse) {
            auto data = std::make_unique<ExtentSource>(tar_);
            data->AddPart(size, location.data);
            return data;
        }
        return std::make_unique<SpooledStream>(std::make_unique<MemberData>(tar_, location.header),
                                               spool_, size);
    }

  private:
    struct Location {
        uint64_t header;
        uint64_t data;
        bool is_sparse;
    };

    // Returns the size of the data that follow the member's header.
    static uint64_t SizeOf(archive_entry* entry) {
        const bool has_data = archive_entry_hardlink(entry) == nullptr &&
                              archive_entry_filetype(entry) == AE_IFREG;
        return has_data ? static_cast<uint64_t>(archive_entry_size(entry)) : 0;
    }

    void Add(const ArchiveReader& archive, archive_entry* entry) {
        const char* name = archive_entry_pathname(entry);
        if (name == nullptr) throw Damage("tar: a member without a name");
        if (const char* existing = archive_entry_hardlink(entry)) {
            return tree_.AddLink(name, existing);
        }
        Node node;
        node.mode = archive_entry_mode(entry);
        node.user = static_cast<uid_t>(archive_entry_uid(entry));
        node.group = static_cast<gid_t>(archive_entry_gid(entry));
        node.seconds = archive_entry_mtime(entry);
        node.nanoseconds = static_cast<uint32_t>(archive_entry_mtime_nsec(entry));
        if (S_ISREG(node.mode)) {
            const la_int64_t size = archive_entry_size(entry);
            if (size < 0 || static_cast<uint64_t>(size) > limits::kArchiveMember) {
                throw Damage(std::string("member '") + name + "': more than " +
                             std::to_string(limits::kArchiveMember >> 30) + " GiB");
            }
            node.size = static_cast<uint64_t>(size);
        }
        const char* target = archive_entry_symlink(entry);
        const uint64_t added = tree_.Add(name, node, target == nullptr ? "" : target);
        if (!S_ISREG(node.mode)) return;
        locations_[added] = {archive.header(), archive.data(),
                             archive_entry_sparse_count(entry) > 0};
    }

    const Source& tar_;
    Spool* spool_;
    MemberTree tree_;
    std::map<uint64_t, Location> locations_;
};

}  // namespace

std::unique_ptr<Archive> OpenTar(const Source& source, Spool* spool) {
    return IsTar(source) ? std::make_unique<Tar>(source, spool) : nullptr;
}

}  // namespace images
