#include "streams.h"

#include <string_view>

#include "libarchive.h"

namespace images {

namespace {

constexpr struct {
    std::string_view magic;
    const char* name;
} kCompressions[] = {
        {std::string_view("\x1f\x8b", 2), "gzip"},
        {std::string_view("\xfd"
                          "7zXZ\0",
                          6),
         "xz"},
        {std::string_view("\x28\xb5\x2f\xfd", 4), "zstd"},
        {std::string_view("\x04\x22\x4d\x18", 4), "lz4"},
        {std::string_view("\x02\x21\x4c\x18", 4), "lz4"},  // the form that kernels are packed in
        {std::string_view("BZh", 3), "bzip2"},
};

// The decompressed bytes, which the library treats as the only member of an archive.
class Member : public Stream {
  public:
    explicit Member(const Source& source) : name_(CompressionOf(source)), archive_(source, 0) {
        archive_.Support(archive_read_support_format_raw);
        for (auto* filter : {archive_read_support_filter_gzip, archive_read_support_filter_xz,
                             archive_read_support_filter_zstd, archive_read_support_filter_lz4,
                             archive_read_support_filter_bzip2}) {
            archive_.Support(filter);
        }
        Naming([this] {
            archive_.Open();
            archive_.Next();
            if (archive_.packings() > 1) throw Damage("packed more than once");
        });
    }

    size_t Next(char* to, size_t size) override {
        size_t got = 0;
        Naming([&] { got = archive_.Read(to, size); });
        return got;
    }

  private:
    template <typename Function>
    void Naming(Function function) try {
        function();
    } catch (const Damage& damage) {
        throw Damage(std::string(name_) + ": " + damage.what());
    }

    const char* name_;
    ArchiveReader archive_;
};

}  // namespace

const char* CompressionOf(const Source& source) {
    char head[6] = {};
    source.ReadUpTo(0, head, sizeof(head));
    for (const auto& [magic, name] : kCompressions) {
        if (std::string_view(head, magic.size()) == magic) return name;
    }
    return nullptr;
}

std::unique_ptr<Stream> Unpacked(const Source& source) {
    return std::make_unique<Member>(source);
}

}  // namespace images
