// Archives, compressed files and updates' payloads: ordinary and hostile ones.

#include <archive.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <map>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "archives.h"
#include "contents.h"
#include "packing.h"
#include "payload.h"
#include "reader.h"
#include "streams.h"

namespace {

using images::Damage;
using images::Source;
using images::Spool;
using testing::HasSubstr;

class Memory : public Source {
  public:
    explicit Memory(std::string bytes) : bytes_(std::move(bytes)) {}

    uint64_t size() const override { return bytes_.size(); }
    void Read(uint64_t offset, void* to, size_t size) const override {
        if (offset > bytes_.size() || size > bytes_.size() - offset) throw Damage("truncated");
        memcpy(to, &bytes_[offset], size);
        count_ += size;
    }
    uint64_t count() const { return count_; }

  private:
    std::string bytes_;
    mutable uint64_t count_ = 0;
};

class ArchiveTest : public testing::Test {
  protected:
    ArchiveTest() : spool_(spool_file_.fd) {}

    // Returns everything in the archive: mode and content, by path.
    std::map<std::string, std::string> Tree(const std::string& bytes) {
        const Memory source(bytes);
        const bool is_packed = images::CompressionOf(source) != nullptr;
        const auto unpacked = is_packed ? std::make_unique<images::SpooledStream>(
                                                  images::Unpacked(source), &spool_, 1 << 30)
                                        : nullptr;
        const auto archive = images::OpenArchive(
                is_packed ? *unpacked : static_cast<const Source&>(source), &spool_);
        std::map<std::string, std::string> tree;
        if (archive == nullptr) return {{"no archive", ""}};
        const std::function<void(uint64_t, const std::string&)> walk =
                [&](uint64_t directory, const std::string& path) {
                    for (const auto& [name, node] : archive->List(directory)) {
                        const images::Node status = archive->Look(node);
                        std::string& text = tree[path + "/" + name];
                        text = std::to_string(status.mode) + " ";
                        if (S_ISDIR(status.mode)) walk(node, path + "/" + name);
                        if (S_ISLNK(status.mode)) text += archive->Target(node);
                        if (!S_ISREG(status.mode)) continue;
                        std::string content;
                        for (std::string part;
                             !(part = archive->Read(node, content.size(), 77777)).empty();)
                            content += part;
                        EXPECT_EQ(content.size(), status.size);
                        // The same bytes by random access.
                        const auto any = archive->Content(node);
                        for (const uint64_t at : {status.size / 2, status.size / 3}) {
                            const size_t size = std::min<uint64_t>(1000, status.size - at);
                            EXPECT_EQ(ReadBytes(*any, at, size), content.substr(at, size));
                        }
                        text += content;
                    }
                };
        walk(archive->root(), "");
        return tree;
    }

    // Returns the damage of the archive.
    std::string Fault(const std::string& bytes) {
        try {
            return Tree(bytes).count("no archive") != 0 ? "no archive" : "nothing";
        } catch (const Damage& damage) {
            return damage.what();
        }
    }

    uint64_t Spooled() const {
        struct stat status;
        fstat(spool_file_.fd, &status);
        return static_cast<uint64_t>(status.st_size);
    }

    TemporaryFile spool_file_;
    Spool spool_;
};

TEST_F(ArchiveTest, EachKindIsTheSameTree) {
    const std::string large = Noise(1'100'000) + std::string(300'000, '\0') + "end";
    const std::vector<Member> members = {
            {"./build.prop", kFile, "ro.a=1\n"},
            {"odm/etc", kDirectory, ""},
            {"odm/etc/x.prop", kFile, large},
            {"vendor", kLink, "/odm/vendor"},
            {"empty", kFile, ""},
    };
    const auto mode = [](mode_t mode) { return std::to_string(mode) + " "; };
    const std::map<std::string, std::string> expected = {
            {"/build.prop", mode(kFile) + "ro.a=1\n"},
            {"/odm", mode(S_IFDIR | 0755)},
            {"/odm/etc", mode(kDirectory)},
            {"/odm/etc/x.prop", mode(kFile) + large},
            {"/vendor", mode(kLink) + "/odm/vendor"},
            {"/empty", mode(kFile)},
    };
    EXPECT_EQ(Tree(Zip(members)), expected);
    EXPECT_NE(Zip(members)[6] & 8, 0);  // its sizes and checksums follow the data
    EXPECT_EQ(Tree(Zip(members, "zip:compression=store")), expected);
    EXPECT_EQ(Tree(Zip(members, "zip:zip64")), expected);
    for (auto* format : {archive_write_set_format_ustar, archive_write_set_format_gnutar}) {
        EXPECT_EQ(Tree(Pack(format, nullptr, nullptr, members)), expected);
    }
    for (auto* filter :
         {archive_write_add_filter_gzip, archive_write_add_filter_xz, archive_write_add_filter_zstd,
          archive_write_add_filter_lz4, archive_write_add_filter_bzip2}) {
        EXPECT_EQ(Tree(Pack(archive_write_set_format_pax_restricted, filter, nullptr, members)),
                  expected);
    }
    EXPECT_EQ(Tree(Tar({{"a", kFile, "same"}, {"d/b", 0, "a"}}))["/d/b"], mode(kFile) + "same");
    EXPECT_EQ(Fault("neither of them"), "no archive");
    EXPECT_EQ(Fault(""), "no archive");
}

TEST_F(ArchiveTest, WhatCannotBeADeviceIsDamage) {
    const std::string zip = Zip({{"a/x.prop", kFile, Noise(5000)}});
    std::string flipped = zip, method = zip, large = zip;
    flipped[2500] ^= 1;
    const size_t central = zip.rfind("PK\x01\x02");
    for (const size_t at : {size_t{8}, central + 10}) method[at] = 12;
    memset(&large[central + 24], 0xfe, 4);
    std::string two_sizes = Zip({{"a", kFile, "12345"}}, "zip:compression=store");
    two_sizes[two_sizes.rfind("PK\x01\x02") + 27] = 1;
    const std::string tar = Tar({{"a", kFile, Noise(5000)}});
    std::string broken_tar = tar;
    broken_tar[broken_tar.size() / 4] ^= 1;
    const struct {
        std::string bytes;
        const char* fault;
    } cases[] = {
            {Zip({{"../x", kFile, ""}}), "member '../x': a name that leads out of the archive"},
            {Zip({{"a/../../x", kFile, ""}}), "leads out"},
            {Tar({{"/etc/x", kFile, ""}}), "leads out"},
            {Tar({{"a/..", kDirectory, ""}}), "leads out"},
            {Zip({{"a", kFile, "1"}, {"./a", kFile, "2"}}),
             "member './a': there are two of this name"},
            {Tar({{"a", kFile, "1"}, {"a", kFile, "2"}}), "member 'a': there are two of this name"},
            {Tar({{"a", kFile, "1"}, {"b", 0, "a"}, {"b", 0, "a"}}), "there are two of this name"},
            {Tar({{"a", kFile, "1"}, {"a/b", kFile, "2"}}), "lies below a file"},
            {Tar({{"a", kLink, "/"}, {"a/b", kFile, "2"}}), "lies below a file"},
            {Tar({{"b", 0, "nowhere"}}), "no file before it"},
            {Tar({{std::string(256, 'n'), kFile, ""}}), "more than 255 bytes"},
            {Zip({{"a", kFile, "1"}}, "zip:encryption=zipcrypt"), "member 'a': encrypted"},
            {method, "packed by method 12, which is not supported"},
            {flipped, "member 'a/x.prop': "},
            {two_sizes, "member 'a': stored, but with two sizes"},
            {large, "member 'a/x.prop': "},
            {zip.substr(0, zip.size() - 40), "zip: "},
            {zip.substr(0, 2000), "zip: "},
            {tar.substr(0, 4000), "runcated"},
            {std::string("7z\xbc\xaf\x27\x1c", 6) + "...", "a 7z archive"},
            {"PK\x07\x08....", "a part of a split zip archive"},
            {"Rar!\x1a\x07....", "a RAR archive"},
    };
    for (const auto& [bytes, fault] : cases) EXPECT_THAT(Fault(bytes), HasSubstr(fault));
    const std::string gzip = Pack(archive_write_set_format_ustar, archive_write_add_filter_gzip,
                                  nullptr, {{"a", kFile, Noise(500'000)}});
    EXPECT_THAT(Fault(gzip.substr(0, gzip.size() / 2)), HasSubstr("gzip: "));
}

TEST(MemberTreeTest, HardLinksCountAsMembers) {
    std::string deep;
    for (int i = 0; i < 250; ++i) deep += std::string(255, 'd') + "/";
    images::MemberTree tree;
    images::Node file;
    file.mode = kFile;
    tree.Add("file", file);
    const auto add = [&] {
        for (int i = 0; i < 1'100; ++i) tree.AddLink(deep + std::to_string(i), "file");
    };
    EXPECT_THAT(add, testing::ThrowsMessage<Damage>(HasSubstr("too many bytes of names")));
}

TEST_F(ArchiveTest, OnlyWhatIsLookedAtIsRead) {
    std::vector<Member> members;
    for (int i = 0; i < 5; ++i) members.push_back({std::to_string(i), kFile, Noise(2'000'000)});
    for (const char* options : {"zip:compression=store", "zip:compression=deflate"}) {
        const Memory source(Zip(members, options));
        const auto archive = images::OpenArchive(source, &spool_);
        const uint64_t before = Spooled();
        EXPECT_EQ(archive->Read(archive->List(0)[3].node, 0, 1000), Noise(1000));
        EXPECT_LT(source.count(), 600'000u) << options;
        EXPECT_LE(Spooled() - before, Spool::kChunkSize) << options;
    }
    // Zeros take no room, however many there are.
    const std::string zeros(12'000'000, '\0');
    Tree(Zip({{"zeros", kFile, zeros}}));
    EXPECT_LT(Spooled(), 12'000'000u);
}

// --- Payloads -----------------------------------------------------------------------------------

PayloadMaker Sample() {
    PayloadMaker maker;
    maker.Add("my_region", {{0, Noise(3 * kBlock)},
                            {1, Noise(kBlock)},
                            {6, std::string(2 * kBlock, '\0')},
                            {8, Noise(40 * kBlock)},
                            {7, std::string(kBlock, '\0')}});
    maker.Add("odm", {{8, Noise(2 * kBlock)}});
    return maker;
}

TEST_F(ArchiveTest, APayloadHoldsItsPartitions) {
    const Memory source(Sample().Write());
    const auto payload = images::OpenPayload(source, &spool_);
    ASSERT_EQ(payload->partitions().size(), 2u);
    EXPECT_EQ(payload->partitions()[1].name, "odm");
    const auto content = payload->Open(0);
    EXPECT_EQ(ReadBytes(*content, 0, content->size()),
              Noise(3 * kBlock) + Noise(kBlock) + std::string(2 * kBlock, '\0') +
                      Noise(40 * kBlock) + std::string(kBlock, '\0'));
    EXPECT_EQ(ReadBytes(*payload->Open(1), kBlock, 10), Noise(2 * kBlock).substr(kBlock, 10));
    EXPECT_EQ(images::OpenPayload(Memory("CrAZ and more"), &spool_), nullptr);
}

TEST_F(ArchiveTest, APartitionIsUnpackedOnceEvenIfItHoldsNoFiles) {
    std::vector<std::unique_ptr<Source>> parts;
    parts.push_back(std::make_unique<Memory>(Sample().Write()));
    images::Contents contents(std::move(parts), 'a', &spool_);
    EXPECT_THROW(contents.Open(0), Damage);
    const uint64_t once = Spooled();
    EXPECT_THROW(contents.Open(0), Damage);
    EXPECT_EQ(Spooled(), once);
}

TEST_F(ArchiveTest, ADamagedPayloadSaysWhere) {
    using Change = std::function<void(PayloadMaker*)>;
    const auto operation = [](PayloadMaker* maker, int number) {
        return maker->manifest.mutable_partitions(0)->mutable_operations(number);
    };
    const struct {
        Change change;
        const char* fault;
    } cases[] = {
            {[](auto* maker) { maker->data[5] ^= 1; },
             "operation 0: its data have a wrong SHA-256"},
            {[&](auto* maker) { operation(maker, 0)->clear_data_sha256(), maker->data[5] ^= 1; },
             "the partition has a wrong SHA-256"},
            {[&](auto* maker) { operation(maker, 2)->set_type(4); },
             "operation 2: type 4 is not known"},
            {[&](auto* maker) { operation(maker, 3)->set_type(1); }, "not packed by bzip2"},
            {[&](auto* maker) { operation(maker, 0)->set_data_offset(~uint64_t{0}); }, "truncated"},
            {[&](auto* maker) { operation(maker, 3)->set_data_length(1 << 30); }, "truncated"},
            {[&](auto* maker) {
                 operation(maker, 0)->mutable_destination_extents(0)->set_start_block(~uint64_t{0} /
                                                                                      kBlock);
             },
             "operation 0: beyond the end of the partition"},
            {[&](auto* maker) {
                 operation(maker, 0)->mutable_destination_extents(0)->set_blocks(2);
             },
             "more data than it has blocks"},
            {[&](auto* maker) {
                 operation(maker, 0)->mutable_destination_extents(0)->set_blocks(4);
             },
             "fewer data than it has blocks"},
            {[](auto* maker) { maker->manifest.set_block_size(3); }, "blocks of 3 bytes"},
            {[](auto* maker) { maker->manifest.mutable_partitions(1)->set_name("my_region"); },
             "partition 'my_region' is there twice"},
            {[](auto* maker) {
                 maker->manifest.mutable_partitions(0)->mutable_new_info()->set_size(1ull << 60);
             },
             "of more than 16 GiB"},
            {[&](auto* maker) {
                 maker->manifest.set_minor_version(8);
                 operation(maker, 0)->add_source_extents();
             },
             "a delta payload, which changes the images of an older release (my_region)"},
    };
    const auto fault = [this](const std::string& bytes) -> std::string {
        try {
            const Memory source(bytes);
            images::OpenPayload(source, &spool_)->Open(0);
            return "nothing";
        } catch (const Damage& damage) {
            return damage.what();
        }
    };
    for (const auto& [change, expected] : cases) {
        PayloadMaker maker = Sample();
        change(&maker);
        EXPECT_THAT(fault(maker.Write()), HasSubstr(expected));
    }
    std::string bytes = Sample().Write();
    for (const size_t size : {size_t{10}, size_t{30}, size_t{400}, bytes.size() / 2}) {
        EXPECT_THAT(fault(bytes.substr(0, size)), HasSubstr("runcated")) << size;
    }
    bytes[11] = 3;
    EXPECT_THAT(fault(bytes), HasSubstr("payload: of version 3"));
}

// --- In the reader process ----------------------------------------------------------------------

class PackedImagesTest : public ArchiveTest {
  protected:
    // Returns an image of a file system with one file.
    std::string Image(const std::string& content) const {
        const std::string directory = directory_.path;
        android::base::WriteStringToFile(content, directory + "/files/build.prop");
        const std::string image = directory + "/image";
        unlink(image.c_str());
        const std::string command = "PATH=$PATH:/usr/sbin; mke2fs -q -F -t ext4 -d " + directory +
                                    "/files " + image + " 1M";
        EXPECT_EQ(system(command.c_str()), 0);
        return Read(image);
    }

    PackedImagesTest() { mkdir((directory_.path + std::string("/files")).c_str(), 0755); }

    std::string Read(const std::string& path) const {
        std::string content;
        EXPECT_TRUE(android::base::ReadFileToString(path, &content));
        return content;
    }

    // Starts a reader for files with these contents.
    images::Reader Open(const std::vector<std::string>& parts) const {
        std::vector<android::base::unique_fd> files;
        for (const std::string& part : parts) {
            TemporaryFile file;
            android::base::WriteStringToFile(part, file.path);
            files.emplace_back(file.release());
            unlink(file.path);
        }
        return images::Reader(std::move(files), 'a');
    }

    static uint64_t Find(const images::FileSystem& files, const std::string& name) {
        uint64_t at = files.root();
        for (const std::string& part : android::base::Split(name, "/")) {
            uint64_t found = ~uint64_t{0};
            for (const auto& [known, node] : files.List(at)) {
                if (known == part) found = node;
            }
            at = found;
        }
        return at;
    }

    // Returns the content of the file in a volume.
    static std::string Content(const images::Reader& reader, size_t volume) {
        const auto files = reader.Open(volume);
        return files->Read(Find(*files, "build.prop"), 0, 1000);
    }

    TemporaryDir directory_;
};

TEST_F(PackedImagesTest, ImagesAreReadInWhateverTheyArePacked) {
    const std::string image = Image("ro.a=1\n");
    for (auto* filter : {archive_write_add_filter_gzip, archive_write_add_filter_xz,
                         archive_write_add_filter_zstd, archive_write_add_filter_lz4}) {
        const images::Reader reader = Open({Packed(filter, image)});
        EXPECT_EQ(reader.contained().kind, images::Kind::kFileSystem);
        EXPECT_EQ(Content(reader, 0), "ro.a=1\n");
    }

    PayloadMaker payload;
    payload.Add("odm", {{8, image}});
    payload.Add("my_region", {{1, Image("ro.a=2\n")}});
    const images::Reader update = Open({payload.Write()});
    EXPECT_EQ(update.contained().kind, images::Kind::kPayload);
    EXPECT_EQ(update.contained().volumes[1].name, "my_region");
    EXPECT_EQ(Content(update, 1), "ro.a=2\n");

    // Images in an archive, and in an archive in it.
    const std::string inner = Zip({{"IMAGES/odm.img", kFile, image}});
    const images::Reader archive =
            Open({Zip({{"x/inner.zip", kFile, inner},
                       {"x/payload.bin", kFile, payload.Write()},
                       {"x/third.zip", kFile, Zip({{"inner.zip", kFile, inner}})},
                       {"x/text", kFile, "text"}})});
    const auto files = archive.Open(0);
    const auto inside = archive.OpenInside(0, {Find(*files, "x/inner.zip")});
    ASSERT_EQ(inside.kind, images::Kind::kArchive);
    const auto inner_files = archive.Open(inside.first_volume);
    const auto odm =
            archive.OpenInside(inside.first_volume, {Find(*inner_files, "IMAGES/odm.img")});
    EXPECT_EQ(Content(archive, odm.first_volume), "ro.a=1\n");
    const auto partitions = archive.OpenInside(0, {Find(*files, "x/payload.bin")});
    EXPECT_EQ(Content(archive, partitions.first_volume + 1), "ro.a=2\n");
    const auto third = archive.OpenInside(0, {Find(*files, "x/third.zip")});
    const auto third_files = archive.Open(third.first_volume);
    EXPECT_THAT([&] { archive.OpenInside(third.first_volume, {Find(*third_files, "inner.zip")}); },
                testing::ThrowsMessage<Damage>(HasSubstr("an archive in an archive")));
    EXPECT_THROW(archive.OpenInside(odm.first_volume, {2}), Damage);
    EXPECT_THROW(archive.OpenInside(99, {2}), Damage);
    EXPECT_THAT([&] { archive.OpenInside(0, {}); },
                testing::ThrowsMessage<Damage>("an image without a file"));
    EXPECT_THAT([&] { Open({}); }, testing::ThrowsMessage<Damage>("an image without a file"));
    const auto text = archive.OpenInside(0, {Find(*files, "x/text")});
    EXPECT_THROW(archive.Open(text.first_volume), Damage);
}

TEST_F(PackedImagesTest, AnImageMayComeInSparseParts) {
    const std::string image = Image("ro.a=1\n");
    const std::string first = SparsePart(image, 0, 100), second = SparsePart(image, 100, 156);
    EXPECT_EQ(Content(Open({first, second}), 0), "ro.a=1\n");
    EXPECT_EQ(Content(Open({second, first}), 0), "ro.a=1\n");
    for (const auto& [other, fault] :
         std::vector<std::pair<std::string, const char*>>{{SparsePart(image, 99, 156), "overlap"},
                                                          {image, "no Android sparse image"},
                                                          {second.substr(0, 5000), "truncated"}}) {
        const std::vector<std::string> parts = {first, other};
        EXPECT_THAT([&] { Open(parts); }, testing::ThrowsMessage<Damage>(HasSubstr(fault)));
    }
}

}  // namespace
