// Devices in files: in archives, updates, compressed and split images.

#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "budget.h"
#include "packing.h"
#include "sanitized.h"
#include "stranger.h"
#include "super_image.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::ContainsRegex;
using testing::HasSubstr;

constexpr uid_t kNobody = 65534;

// Removes the fields that name the device's place and the files that it was in.
void RemovePlaces(json* document) {
    if (document->is_object()) {
        for (const char* name : {"device", "image", "notes"}) document->erase(name);
    }
    for (json& part : *document) {
        if (part.is_structured()) RemovePlaces(&part);
    }
}

class FirmwareTest : public StrangerTest {
  protected:
    FirmwareTest() {
        const std::vector<std::pair<std::string, std::string>> files = {
                {"odm", "ro.odm=1\nro.twice=odm\n"},
                {"my_region", "ro.region=EU\nro.twice=region\nimport /my_company/etc/more.prop\n"},
                {"my_company", "ro.company=c\n"}};
        for (const auto& [name, content] : files) Write("/parts/" + name + "/build.prop", content);
        Write("/parts/my_company/etc/more.prop", "ro.more=1\n");
        Shell("cd parts; mke2fs -q -F -t ext4 -d odm odm.img 1M; mkfs.erofs my_region.img "
              "my_region; "
              "mke2fs -q -F -t ext4 -d my_company my_company.img 1M; truncate -s %64K *.img");
        for (const auto& [name, content] : files) {
            const bool is_my = name != "odm";
            const std::string place = (is_my ? "mnt/vendor/" : "") + name;
            std::string upper = name;
            for (char& letter : upper) letter = static_cast<char>(toupper(letter));
            images_.push_back({name + ".img", kFile, Content("/parts/" + name + ".img")});
            tree_.push_back({place + "/build.prop", kFile, content});
            target_files_.push_back({upper + "/build.prop", kFile, content});
            target_files_.push_back({"IMAGES/" + name + ".img", kFile, "which nobody looks at"});
            if (is_my) tree_.push_back({name, kLink, "/" + place});
        }
        tree_.push_back({"mnt/vendor/my_company/etc/more.prop", kFile, "ro.more=1\n"});
        target_files_.push_back({"MY_COMPANY/etc/more.prop", kFile, "ro.more=1\n"});
    }

    static std::vector<Member> In(const std::string& directory, std::vector<Member> members) {
        for (Member& member : members) member.name.insert(0, directory + "/");
        return members;
    }

    PayloadMaker Payload() const {
        PayloadMaker maker;
        for (const auto& [name, mode, content] : images_) {
            const size_t half = content.size() / kBlock / 2 * kBlock;
            maker.Add(fs::path(name).stem(), {{8, content.substr(0, half)},
                                              {name == "odm.img" ? 0 : 1, content.substr(half)}});
        }
        // A partition that is not read may hold anything.
        maker.Add("modem", {{4, Noise(kBlock)}});
        maker.Add("vendor", {{4, Noise(kBlock)}});
        return maker;
    }

    std::string Super() const {
        std::vector<std::pair<std::string, std::string>> partitions;
        for (const auto& [name, mode, content] : images_) {
            partitions.emplace_back(fs::path(name).stem().string() + "_a", content);
        }
        std::string super = SuperImage(partitions);
        super.resize((super.size() + kBlock - 1) / kBlock * kBlock);
        return super;
    }

    // Writes the device, one file or a directory of several, and returns its name.
    std::string WriteDevice(const std::vector<Member>& files) const {
        for (const auto& [name, mode, content] : files) Write("/" + name, content);
        return files[0].name.substr(0, files[0].name.find('/'));
    }

    json Explain(const std::string& device, uid_t user = 0) {
        const Output output = RunWords({"explain", device, "--all", "--json"}, user);
        EXPECT_EQ(output.status, 0) << device << ": " << output.err;
        return json::parse(output.out, nullptr, false);
    }

    std::vector<Member> tree_, images_, target_files_;
};

// Returns the image that is printed as the property's origin.
std::string ImageOf(const json& explanation, const std::string& property) {
    for (const json& known : explanation["properties"]) {
        if (known["name"] != property) continue;
        const json& image = known["origins"].back()["image"];
        return image.is_null() ? ""
                               : image["path"].get<std::string>() + " in " +
                                         image["name"].get<std::string>();
    }
    return "(none)";
}

TEST_F(FirmwareTest, WhateverADeviceComesInItBootsAsItsDirectory) {
    const std::string super = Super(), payload = Payload().Write();
    const auto blocks = static_cast<uint32_t>(super.size() / kBlock), half = blocks / 2;
    const std::string first = SparsePart(super, 0, half),
                      second = SparsePart(super, half, blocks - half);
    const std::string update =
            Zip({{"./META-INF/com/meta", kFile, ""}, {"payload.bin", kFile, payload}},
                "zip:compression=store");
    std::vector<Member> images = images_;
    images.push_back({"boot.img", kFile, "x"});
    const auto image = [this](size_t i) { return images_[i].content; };
    struct Form {
        std::vector<Member> files;
        std::string origin;
    };
    std::vector<Form> forms = {
            {{{"phone.zip", kFile, Zip(tree_)}}, ""},
            {{{"phone.bin", kFile, Zip(tree_, "zip:compression=store,zip:zip64")}}, ""},
            {{{"wrapped.tar", kFile, Tar(In("./some/phone", tree_))}}, ""},
            {{{"outer.zip", kFile, Zip({{"x/phone.zip", kFile, Zip(tree_)}})}}, ""},
            {{{"files.zip", kFile, Zip(target_files_)}}, "MY_REGION in files.zip"},
            {{{"images.zip", kFile, Zip(In("IMAGES", images))}},
             "IMAGES/my_region.img in images.zip"},
            {{{"factory.zip", kFile,
               Zip(In("f", {{"boot.img", kFile, "x"}, {"image.zip", kFile, Zip(images)}}))}},
             "my_region.img in image.zip in factory.zip"},
            {{{"super.img", kFile, super}}, "my_region_a of super.img"},
            {{{"all.img.zst", kFile, Packed(archive_write_add_filter_zstd, super)}},
             "my_region_a of all.img.zst"},
            {{{"payload.bin", kFile, payload}}, "my_region of payload.bin"},
            {{{"ota.zip", kFile, update}}, "my_region of payload.bin in ota.zip"},
            {{{"d1/payload.bin", kFile, payload}}, "my_region of payload.bin"},
            {{{"d2/ota.zip", kFile, update}}, "my_region of payload.bin in ota.zip"},
            {{{"d3/images.tar.gz", kFile,
               Packed(archive_write_add_filter_gzip, Tar(In("x", images)))}},
             "my_region.img in images.tar.gz"},
            {{{"d4/odm.img.zst", kFile, Packed(archive_write_add_filter_zstd, image(0))},
              {"d4/my_region.img.xz", kFile, Packed(archive_write_add_filter_xz, image(1))},
              {"d4/my_company.img.lz4", kFile, Packed(archive_write_add_filter_lz4, image(2))}},
             "my_region.img.xz"},
            {{{"d5/super.img_sparsechunk.0", kFile, first},
              {"d5/super.img_sparsechunk.1", kFile, second}},
             "my_region_a of super.img_sparsechunk.0"},
            {{{"d6/super_1.img", kFile, first}, {"d6/super_2.img", kFile, second}},
             "my_region_a of super_1.img"},
            {{{"d7/phone.zip", kFile, Zip(tree_)}}, "mnt/vendor/my_region in phone.zip"},
            {In("d8", target_files_), "MY_REGION"},
            {{{"d9/UPDATE.ZIP", kFile, update}}, "my_region of payload.bin in UPDATE.ZIP"},
            {{{"d10/Payload.BIN", kFile, payload}}, "my_region of Payload.BIN"},
            {{{"d11/Super.IMG", kFile, super}}, "my_region_a of Super.IMG"},
            {{{"d12/ODM.IMG", kFile, image(0)},
              {"d12/MY_REGION.IMG", kFile, image(1)},
              {"d12/MY_COMPANY_A.IMG", kFile, image(2)}},
             "MY_REGION.IMG"},
    };
    for (auto* filter :
         {archive_write_add_filter_gzip, archive_write_add_filter_xz, archive_write_add_filter_zstd,
          archive_write_add_filter_lz4, archive_write_add_filter_bzip2}) {
        const std::string name = "phone" + std::to_string(forms.size()) + ".tar.x";
        forms.push_back({{{name, kFile, Packed(filter, Tar(tree_))}}, ""});
    }

    for (const auto& [path, mode, content] : tree_) {
        if (S_ISLNK(mode)) {
            Link(content, "/phone/" + path);
        } else {
            Write("/phone/" + path, content);
        }
    }
    json expected = Explain("phone");
    ASSERT_GE(expected["properties"].size(), 5u) << expected;
    RemovePlaces(&expected);
    for (const auto& [files, origin] : forms) {
        const std::string device = WriteDevice(files);
        json explanation = Explain(device);
        EXPECT_EQ(ImageOf(explanation, "ro.region"),
                  origin.empty() ? "" : "/build.prop in " + origin)
                << device;
        RemovePlaces(&explanation);
        EXPECT_EQ(explanation, expected) << device;
    }

    // The image of the system partition is that of the root.
    Write("/parts/root/system/build.prop", "ro.system=1\n");
    Write("/parts/odm/build.prop", "import /system/build.prop\n");
    Shell("cd parts; for i in root odm; do mke2fs -q -F -t ext4 -d $i $i.img 1M; done; "
          "mkdir ../system; cp root.img ../system/system.img; cp odm.img ../system");
    PayloadMaker whole;
    whole.Add("system", {{0, Content("/parts/root.img")}});
    whole.Add("odm", {{0, Content("/parts/odm.img")}});
    Write("/system.bin", whole.Write());
    EXPECT_EQ(ImageOf(Explain("system"), "ro.system"), "/system/build.prop in system.img");
    EXPECT_EQ(ImageOf(Explain("system.bin"), "ro.system"),
              "/system/build.prop in system of system.bin");

    // Findings name the image too.
    Write("/parts/odm/build.prop", "ro.odm\n");
    const std::string faulty = Zip({{"ODM/build.prop", kFile, "ro.odm\n"}});
    Write("/faulty.zip", faulty);
    for (const uid_t user : {uid_t{0}, kNobody}) {
        EXPECT_THAT(RunWords({"lint", "faulty.zip"}, user).out,
                    HasSubstr("faulty.zip/odm/build.prop:1: "));
        EXPECT_THAT(RunWords({"lint", "faulty.zip"}, user).out,
                    HasSubstr("(/build.prop in ODM in faulty.zip)"));
        EXPECT_EQ(RunWords({"diff", "ota.zip", "phone.zip"}, user).status, 0);
        EXPECT_EQ(RunWords({"matrix", "ota.zip", "super.img"}, user).status, 0);
    }
    EXPECT_EQ(RunWords({"check", "ota.zip", "expect.yaml", "--record"}).status, 0);
    Write("/other.zip", Zip({{"ODM/build.prop", kFile, "ro.odm=2\n"}}));
    for (const auto& [device, status] : {std::pair("ota.zip", 0),
                                         {"super.img", 0},
                                         {"phone.zip", 0},
                                         {"d8", 0},
                                         {"other.zip", 1}}) {
        EXPECT_EQ(RunWords({"check", device, "expect.yaml"}).status, status) << device;
    }
    EXPECT_EQ(ImageOf(Explain("d4/my_region.img.xz"), "ro.region"),
              "/build.prop in my_region.img.xz");
}

TEST_F(FirmwareTest, WhatCannotBeReadIsRefusedAtOnce) {
    const std::string update = Zip({{"payload.bin", kFile, Payload().Write()}});
    const auto changed = [this](const std::function<void(PayloadMaker*)>& change) {
        PayloadMaker maker = Payload();
        change(&maker);
        return Zip({{"payload.bin", kFile, maker.Write()}}, "zip:compression=store");
    };
    const std::string delta = changed([](PayloadMaker* maker) {
        maker->manifest.set_minor_version(8);
        maker->manifest.mutable_partitions(1)->mutable_operations(0)->add_source_extents();
    });
    const std::string damaged = changed([](PayloadMaker* maker) { maker->data[5000] ^= 1; });
    const std::string unknown = changed([](PayloadMaker* maker) {
        maker->manifest.mutable_partitions(0)->mutable_operations(1)->set_type(9);
    });
    const std::string oversized = changed([](PayloadMaker* maker) {
        maker->manifest.mutable_partitions(0)->mutable_new_info()->set_size(uint64_t{1} << 50);
    });
    const std::string crowded = changed([](PayloadMaker* maker) {
        for (int i = 0; i < 1100; ++i) {
            maker->manifest.add_partitions()->set_name("p" + std::to_string(i));
        }
    });
    const std::string long_name = changed([](PayloadMaker* maker) {
        maker->manifest.mutable_partitions(0)->set_name(std::string(100'000, 'p'));
    });
    const auto nested = [&](std::string inner, int levels) {
        for (int i = 0; i < levels; ++i) inner = Zip({{"a.zip", kFile, inner}});
        return inner;
    };
    const std::string tar = Tar(tree_), gzip = Packed(archive_write_add_filter_gzip, tar);
    const std::string zstd = Packed(archive_write_add_filter_zstd, images_[0].content);
    const std::string super = Super();
    const struct {
        std::string file, bytes, error;
    } cases[] = {
            {"ota.zip", update.substr(0, update.size() / 2), "/ota.zip: zip: truncated"},
            {"phone.tar.gz", gzip.substr(0, gzip.size() / 2), "/phone.tar.gz: gzip: truncated"},
            {"phone.tar", tar.substr(0, tar.size() / 3), "/phone.tar: "},
            {"odm.img.zst", zstd.substr(0, zstd.size() / 2), "/odm.img.zst: zstd: "},
            {"images.zip", Zip({{"odm.img", kFile, images_[0].content.substr(0, 500'000)}}),
             "/images.zip(odm.img): truncated"},
            {"delta.zip", delta,
             "/delta.zip(payload.bin): a delta payload, which changes the images of an older "
             "release (my_region) and holds none"},
            {"ota.zip", damaged, "/ota.zip(payload.bin)("},
            {"ota.zip", unknown, "(odm): payload: operation 1: type 9 is not known"},
            {"ota.zip", oversized, "partition 'odm' of more than 16 GiB"},
            {"ota.zip", crowded, "(payload.bin): payload: more than 1024 partitions"},
            {"ota.zip", long_name, "(payload.bin): payload: a partition's name of more than 255"},
            {"nested.zip", nested(Zip(tree_), 2), "an archive in an archive in an archive"},
            {"nested.zip", nested(Zip(tree_), 9), "an archive in an archive in an archive"},
            {"climbing.zip", Zip({{"odm/../../../x", kFile, ""}}),
             "/climbing.zip: member 'odm/../../../x': a name that leads out of the archive"},
            {"twice.zip", Zip({{"odm/a", kFile, ""}, {"./odm/a", kFile, ""}}),
             "there are two of this name"},
            {"secret.zip", Zip(images_, "zip:encryption=zipcrypt"), "member 'odm.img': encrypted"},
            {"link.zip", Zip({{"odm.img", kLink, "/etc/passwd"}}), "not a regular file"},
            {"two.zip", Zip({{"a.zip", kFile, update}, {"b.zip", kFile, update}}),
             "several archives (a.zip, b.zip)"},
            {"x.rar", "Rar!\x1a\x07....", "/x.rar: a RAR archive"},
            {"ota.zip.001", update.substr(0, 1000), "a part of a split file"},
            {"super.img_sparsechunk.0", SparsePart(super, 0, 100), "one part of a split image"},
            {"odm.img.zst", Packed(archive_write_add_filter_zstd, zstd), "packed more than once"},
            {"stuff.img", images_[0].content, "the name must be that of a partition"},
            {"x.txt", "ro.a=1\n", "or an archive of a known format"},
            {"nothing.zip", Zip({{"readme", kFile, ""}}),
             "an archive without an image or directory of a partition"},
            {"d1/super_1.img", SparsePart(super, 0, 100), "/d1/super_1.img("},
            {"d2/super_2.img", SparsePart(super, 0, 100), "of which an earlier part is missing"},
            {"d3/ota.zip", update.substr(0, update.size() / 2), "/d3/ota.zip: zip: truncated"},
            {"d4/my_region.img", super, "/d4/my_region.img: a super partition"},
            {"d5/payload.bin", super, "a super partition; expected an update's payload"},
    };
    const auto used = [] {
        rusage children;
        getrusage(RUSAGE_CHILDREN, &children);
        return children.ru_utime.tv_sec + children.ru_stime.tv_sec +
               (children.ru_utime.tv_usec + children.ru_stime.tv_usec) / 1e6;
    };
    for (const auto& [file, bytes, error] : cases) {
        const std::string device = WriteDevice({{file, kFile, bytes}});
        const double before = used();
        const Output output = RunWords({"boot", device});
        EXPECT_EQ(output.status, 2) << file;
        EXPECT_THAT(output.err, HasSubstr(error));
        EXPECT_TRUE(kIsSanitized || used() - before < 1) << file << ": " << used() - before << " s";
    }
    // Unpacked content may be large, but not for any packed size.
    std::string mostly_zeros = Packed(archive_write_add_filter_zstd, images_[0].content);
    const std::string zeros =
            Packed(archive_write_add_filter_zstd, std::string(size_t{64} << 20, '\0'));
    const auto add = [&](uint64_t more) {
        for (; more >= size_t{64} << 20; more -= size_t{64} << 20) mostly_zeros += zeros;
    };
    add(limits::kUnpacked * 3 / 4);
    Write("/odm.img.zst", mostly_zeros);
    EXPECT_EQ(RunWords({"boot", "odm.img.zst"}).status, 0);
    add(limits::kUnpacked / 2);
    Write("/odm.img.zst", mostly_zeros);
    Write("/bomb/odm.img.zst", mostly_zeros);
    Write("/bomb.zip", Zip({{"a.zip", kFile, Zip({{"odm.img.zst", kFile, mostly_zeros}})}}));
    for (const char* name : {"odm.img.zst", "bomb", "bomb.zip"}) {
        const Output output = RunWords({"boot", name});
        EXPECT_EQ(output.status, 2) << name;
        EXPECT_THAT(output.err, ContainsRegex("odm.img.zst\\)?: more than 10.. MiB to unpack"));
    }

    // Files that are not read may hold anything, and be many.
    fs::create_directories(Path("/some/odm"));
    for (int i = 0; i < 50; ++i) Write("/some/radio" + std::to_string(i) + "x.img", "?");
    for (const char* name : {"vendor.img", "my_x.img", "system.img"}) {
        Write(std::string("/some/") + name, "?");
        const Output boot = RunWords({"boot", "some"}), lint = RunWords({"lint", "some"});
        EXPECT_EQ(boot.status, 0) << boot.err;
        EXPECT_THAT(boot.err, HasSubstr(std::string(name) + " was not needed, and cannot be read"));
        EXPECT_EQ(lint.status, 2) << lint.out;
        EXPECT_THAT(lint.err, HasSubstr(std::string(name) + ": neither an ext4 nor"));
        fs::remove(Path(std::string("/some/") + name));
    }

    EXPECT_EQ(RunWords({"boot", "some", "--image", "my_x=x.txt"}).status, 2);
    EXPECT_EQ(RunWords({"boot", "some"}).status, 0);

    // Links must stay within the archive.
    Write("/links.tar", Tar({{"odm/build.prop", kLink, Path("/outside/kept")},
                             {"my_region", kLink, Path("/outside")}}));
    EXPECT_EQ(RunWords({"boot", "links.tar"}).status, 0);
}

}  // namespace
