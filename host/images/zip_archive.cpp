#include "zip_archive.h"

#include <string.h>
#include <sys/stat.h>
#include <zip.h>

#include <algorithm>
#include <new>

#include "../budget.h"

namespace images {

namespace {

constexpr std::string_view kMagics[] = {"PK\x03\x04", "PK\x05\x06"};

std::string TextOf(zip_error_t* error) {
    // Files that are no zip archives do not get here.
    std::string text = zip_error_code_zip(error) == ZIP_ER_NOZIP
                               ? "truncated, or the directory at its end is damaged"
                               : zip_error_strerror(error);
    zip_error_fini(error);
    return "zip: " + text;
}

// The data source through which libzip reads.
class Bytes {
  public:
    explicit Bytes(const Source& source) : source_(source) { zip_error_init(&error_); }
    ~Bytes() { zip_error_fini(&error_); }
    Bytes& operator=(Bytes&&) = delete;

    // Returns the error of the source, which libzip cannot report, or "".
    const std::string& met() const { return met_; }

    static zip_int64_t Answer(void* self, void* data, zip_uint64_t size, zip_source_cmd_t command) {
        return static_cast<Bytes*>(self)->Answer(data, size, command);
    }

  private:
    zip_int64_t Answer(void* data, zip_uint64_t size, zip_source_cmd_t command) {
        switch (command) {
            case ZIP_SOURCE_OPEN:
                at_ = 0;
                return 0;
            case ZIP_SOURCE_READ:
                return Read(data, size);
            case ZIP_SOURCE_CLOSE:
            case ZIP_SOURCE_FREE:
                return 0;
            case ZIP_SOURCE_STAT: {
                auto* status = static_cast<zip_stat_t*>(data);
                zip_stat_init(status);
                status->valid = ZIP_STAT_SIZE;
                status->size = source_.size();
                return sizeof(*status);
            }
            case ZIP_SOURCE_ERROR:
                return zip_error_to_data(&error_, data, size);
            case ZIP_SOURCE_SEEK: {
                const zip_int64_t to =
                        zip_source_seek_compute_offset(at_, source_.size(), data, size, &error_);
                if (to < 0) return -1;
                at_ = static_cast<uint64_t>(to);
                return 0;
            }
            case ZIP_SOURCE_TELL:
                return static_cast<zip_int64_t>(at_);
            case ZIP_SOURCE_SUPPORTS:
                return zip_source_make_command_bitmap(
                        ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE, ZIP_SOURCE_STAT,
                        ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, ZIP_SOURCE_SEEK, ZIP_SOURCE_TELL,
                        ZIP_SOURCE_SUPPORTS, -1);
            default:
                zip_error_set(&error_, ZIP_ER_OPNOTSUPP, 0);
                return -1;
        }
    }

    zip_int64_t Read(void* data, zip_uint64_t size) {
        try {
            const size_t got = source_.ReadUpTo(at_, data, size);
            at_ += got;
            return static_cast<zip_int64_t>(got);
        } catch (const std::exception& error) {
            // libzip is C code, which no exception must pass through.
            met_ = error.what();
            zip_error_set(&error_, ZIP_ER_READ, EIO);
            return -1;
        }
    }

    const Source& source_;
    uint64_t at_ = 0;
    std::string met_;
    zip_error_t error_;
};

struct OpenedZip {
    zip_t* zip;
    const Bytes& bytes;
};

// One open member. libzip compares its checksum when its end is reached.
class OpenMember {
  public:
    OpenMember(const OpenedZip& opened, uint64_t index, const std::string& name)
            : bytes_(opened.bytes), name_(name), file_(zip_fopen_index(opened.zip, index, 0)) {
        if (file_ == nullptr) Fail(zip_get_error(opened.zip));
    }
    ~OpenMember() { zip_fclose(file_); }
    OpenMember& operator=(OpenMember&&) = delete;

    size_t Read(void* to, size_t size) {
        const zip_int64_t got = zip_fread(file_, to, size);
        if (got < 0) Fail(zip_file_get_error(file_));
        return static_cast<size_t>(got);
    }

    void Seek(uint64_t offset) {
        if (zip_fseek(file_, static_cast<zip_int64_t>(offset), SEEK_SET) != 0) {
            Fail(zip_file_get_error(file_));
        }
    }

    [[noreturn]] void Fail(const std::string& why) const {
        throw Damage("member '" + name_ + "': " + why);
    }

  private:
    [[noreturn]] void Fail(zip_error_t* error) const {
        if (!bytes_.met().empty()) throw Damage(bytes_.met());
        Fail(zip_error_strerror(error));
    }

    const Bytes& bytes_;
    std::string name_;
    zip_file_t* file_;
};

class StoredMember : public Source {
  public:
    StoredMember(const OpenedZip& zip, uint64_t index, const std::string& name, uint64_t size)
            : member_(zip, index, name), size_(size) {}

    uint64_t size() const override { return size_; }

    void Read(uint64_t offset, void* to, size_t size) const override {
        if (offset > size_ || size > size_ - offset) member_.Fail("truncated");
        member_.Seek(offset);
        for (size_t done = 0; done < size;) {
            const size_t got = member_.Read(static_cast<char*>(to) + done, size - done);
            if (got == 0) member_.Fail("truncated");
            done += got;
        }
    }

  private:
    mutable OpenMember member_;
    uint64_t size_;
};

class PackedMember : public Stream {
  public:
    PackedMember(const OpenedZip& zip, uint64_t index, const std::string& name, uint64_t size)
            : member_(zip, index, name), left_(size) {}

    size_t Next(char* to, size_t size) override {
        const size_t got = member_.Read(to, std::min<uint64_t>(size, left_));
        if (got == 0 && left_ != 0) member_.Fail("truncated");
        left_ -= got;
        if (left_ == 0 && !ended_) {
            char more;
            if (member_.Read(&more, 1) != 0) member_.Fail("more bytes than its size");
            ended_ = true;
        }
        return got;
    }

  private:
    OpenMember member_;
    uint64_t left_;
    bool ended_ = false;
};

// A small member, kept in memory after its checksum was compared.
class SmallMember : public Source {
  public:
    SmallMember(PackedMember&& member, size_t size) : bytes_(size, '\0') {
        for (size_t done = 0; done < size;) done += member.Next(&bytes_[done], size - done);
    }

    uint64_t size() const override { return bytes_.size(); }

    void Read(uint64_t offset, void* to, size_t size) const override {
        if (offset > bytes_.size() || size > bytes_.size() - offset) throw Damage("truncated");
        memcpy(to, &bytes_[offset], size);
    }

  private:
    std::string bytes_;
};

class Zip : public Archive {
  public:
    Zip(const Source& source, Spool* spool) : bytes_(source), spool_(spool) {
        zip_error_t error;
        zip_error_init(&error);
        zip_source_t* opened = zip_source_function_create(Bytes::Answer, &bytes_, &error);
        if (opened == nullptr) throw Damage(TextOf(&error));
        zip_ = zip_open_from_source(opened, ZIP_RDONLY, &error);
        if (zip_ == nullptr) {
            zip_source_free(opened);
            const std::string text = TextOf(&error);
            throw Damage(bytes_.met().empty() ? text : bytes_.met());
        }
        try {
            const zip_int64_t count = zip_get_num_entries(zip_, 0);
            for (zip_int64_t i = 0; i < count; ++i) Add(static_cast<uint64_t>(i));
        } catch (...) {
            zip_discard(zip_);
            throw;
        }
    }
    ~Zip() override {
        kept_.reset();
        zip_discard(zip_);
    }

    uint64_t root() const override { return MemberTree::kRoot; }
    Node Look(uint64_t node) const override { return tree_.Look(node); }
    std::vector<Name> List(uint64_t directory) const override { return tree_.List(directory); }

    std::string Target(uint64_t link) const override {
        constexpr uint64_t kLongestTarget = 4095;
        const Node& node = tree_.Look(link);
        if (!S_ISLNK(node.mode) || node.size == 0 || node.size > kLongestTarget) {
            throw Damage("member '" + tree_.NameOf(link) + "': not a link with a target");
        }
        std::string target = ReadBytes(*MemberContent(link), 0, node.size);
        if (target.find('\0') != std::string::npos) {
            throw Damage("member '" + tree_.NameOf(link) + "': a link with a zero byte");
        }
        return target;
    }

    std::string Read(uint64_t file, uint64_t offset, size_t size) const override {
        std::string bytes(std::min<uint64_t>(size, tree_.File(file).size), '\0');
        // The last file stays open: consecutive reads of a packed member continue it.
        if (kept_ == nullptr || kept_file_ != file) {
            kept_ = Content(file);
            kept_file_ = file;
        }
        bytes.resize(kept_->ReadUpTo(offset, bytes.data(), bytes.size()));
        return bytes;
    }

    std::unique_ptr<Source> Content(uint64_t file) const override {
        tree_.File(file);
        return MemberContent(file);
    }

  private:
    struct Location {
        uint64_t index;
        bool is_stored;
    };

    void Add(uint64_t index) {
        zip_stat_t status;
        zip_stat_init(&status);
        if (zip_stat_index(zip_, index, ZIP_FL_ENC_RAW, &status) != 0) {
            throw Damage(std::string("zip: ") + zip_strerror(zip_));
        }
        const std::string name = status.name;
        const auto refuse = [&name](const std::string& why) {
            throw Damage("member '" + name + "': " + why);
        };
        if (status.encryption_method != ZIP_EM_NONE) refuse("encrypted");
        if (status.comp_method != ZIP_CM_STORE && status.comp_method != ZIP_CM_DEFLATE) {
            refuse("packed by method " + std::to_string(status.comp_method) +
                   ", which is not supported");
        }
        // libzip cannot seek correctly in such a member.
        if (status.comp_method == ZIP_CM_STORE && status.comp_size != status.size) {
            refuse("stored, but with two sizes");
        }
        if (status.size > limits::kArchiveMember) {
            refuse("more than " + std::to_string(limits::kArchiveMember >> 30) + " GiB");
        }
        Node node;
        node.mode = ModeOf(index, !name.empty() && name.back() == '/');
        node.size = S_ISDIR(node.mode) ? 0 : status.size;
        node.seconds = status.mtime;
        const uint64_t added = tree_.Add(name, node);
        if (S_ISREG(node.mode) || S_ISLNK(node.mode)) {
            locations_[added] = {index, status.comp_method == ZIP_CM_STORE};
        }
    }

    // Archives of systems without such modes have zero here.
    mode_t ModeOf(uint64_t index, bool is_directory) const {
        zip_uint8_t system = 0;
        zip_uint32_t attributes = 0;
        zip_file_get_external_attributes(zip_, index, 0, &system, &attributes);
        const mode_t mode = system == ZIP_OPSYS_UNIX ? attributes >> 16 : 0;
        const bool has_type = (mode & S_IFMT) != 0;
        if (has_type && S_ISDIR(mode) == is_directory) return mode;
        const mode_t permissions = mode & 07777;
        if (is_directory) return S_IFDIR | (permissions != 0 ? permissions : 0755);
        return S_IFREG | (permissions != 0 ? permissions : 0644);
    }

    std::unique_ptr<Source> MemberContent(uint64_t node) const {
        const Location& location = locations_.at(node);
        const std::string& name = tree_.NameOf(node);
        const uint64_t size = tree_.Look(node).size;
        constexpr uint64_t kSmall = 1 << 20;
        const OpenedZip zip = {zip_, bytes_};
        if (size <= kSmall) {
            return std::make_unique<SmallMember>(PackedMember(zip, location.index, name, size),
                                                 size);
        }
        if (location.is_stored) {
            return std::make_unique<StoredMember>(zip, location.index, name, size);
        }
        return std::make_unique<SpooledStream>(
                std::make_unique<PackedMember>(zip, location.index, name, size), spool_, size);
    }

    Bytes bytes_;
    Spool* spool_;
    zip_t* zip_ = nullptr;
    MemberTree tree_;
    std::map<uint64_t, Location> locations_;
    mutable std::unique_ptr<Source> kept_;
    mutable uint64_t kept_file_ = 0;
};

}  // namespace

std::unique_ptr<Archive> OpenZip(const Source& source, Spool* spool) {
    char magic[4] = {};
    source.ReadUpTo(0, magic, sizeof(magic));
    const bool is_zip =
            std::any_of(std::begin(kMagics), std::end(kMagics), [&magic](std::string_view known) {
                return std::string_view(magic, sizeof(magic)) == known;
            });
    return is_zip ? std::make_unique<Zip>(source, spool) : nullptr;
}

}  // namespace images
