// What lint finds, and what it lets pass.

#include "lint/lint.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include <android-base/file.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using extprop::Finding;
using extprop::Lint;
using extprop::Severity;
using testing::ElementsAre;
using testing::HasSubstr;

using Lines = std::vector<std::string>;

constexpr char kReserve[] = "/mnt/vendor/tesvoreserve/system/ssv/";
constexpr char kCotaInfo[] = "/data/cota/cota_mount_info.prop";
constexpr char kDeviceName[] = "/my_product/cust/EU/etc/devicename.cfg";

class LintTest : public testing::Test {
  protected:
    std::string Prepare(const std::string& path) const {
        fs::create_directories(fs::path(directory_.path + path).parent_path());
        return directory_.path + path;
    }

    void Write(const std::string& path, const std::string& content) const {
        std::ofstream(Prepare(path), std::ios::binary) << content;
    }

    // "path:line identifier" of each finding.
    Lines Found() const {
        Lines found;
        for (const Finding& finding : Lint(directory_.path)) {
            found.push_back(finding.file.substr(strlen(directory_.path)) + ":" +
                            std::to_string(finding.line) + " " + finding.identifier);
        }
        return found;
    }

    TemporaryDir directory_;
};

TEST_F(LintTest, FaultySampleHasEachFaultOnce) {
    const std::string sample = SAMPLES_DIR "/faulty";
    Lines found;
    for (const Finding& finding : Lint(sample + "/")) {
        const std::string text = FindingText(finding);
        // Without the message.
        const size_t message = text.find(": ", text.find(": ") + 1);
        found.push_back(text.substr(sample.size(), message - sample.size()) +
                        text.substr(text.rfind(" [")));
    }
    EXPECT_THAT(found,
                ElementsAre("/data/cota/cota_mount_info.prop:4: warning [not-forwarded]",
                            "/mnt/vendor/my_carrier/properties/north/SimSwitchFirstTime/"
                            "apn.prop.bak:1: warning [skipped-file]",
                            "/mnt/vendor/my_product/build.prop:2: error [missing-import]",
                            "/mnt/vendor/my_product/build.prop:4: error [malformed-reference]",
                            "/mnt/vendor/my_product/build.prop:6: warning [unset-reference]",
                            "/mnt/vendor/my_product/build.prop:8: warning [missing-variant]",
                            "/mnt/vendor/my_product/build.prop:11: error [no-equals]",
                            "/mnt/vendor/my_product/build.prop:13: error [illegal-name]",
                            "/mnt/vendor/my_product/build.prop:15: error [value-too-long]",
                            "/mnt/vendor/my_product/build.prop:18: warning [duplicate-name]",
                            "/my_company/media/logo/logo.img:1: error [logo-too-large]",
                            "/my_product/cust/EU/etc/devicename.cfg:2: error [rom-never-matches]",
                            "/odm/etc/binary.prop:3: error [binary]",
                            "/odm/etc/directory.prop:1: warning [not-a-file]",
                            "/odm/etc/encoding.prop:2: error [not-utf8]",
                            "/odm/etc/line_ends.prop:2: warning [crlf]",
                            "/odm/etc/line_ends.prop:3: error [carriage-return]",
                            "/odm/etc/link.prop:1: error [symbolic-link]",
                            "/odm/etc/radio.prop:2: error [import-cycle]"));
}

TEST_F(LintTest, LinesAreJudgedByTheUseOfTheirFile) {
    Write("/dev/block/by-name/splash_odm", "four");
    const std::string most(91, 'x');
    const std::string more(92, 'x');
    const struct {
        std::string path;
        std::string content;
        Lines found;  // behind the path
    } cases[] = {
            {"/odm/a.prop", "persist.x=" + most + "\nro.x=" + more + "\nro.y=M\xc3\xbcller", {}},
            {"/odm/a.prop", "# M\xfcller\nx=1\nx=1\nx = 1\n", {}},
            {"/odm/etc/nvmap.prop", "a b=" + more, {}},
            {kReserve + std::string("sim_switch_first_file"), "north", {}},
            {kReserve + std::string("first_switch_none_clear"), "1", {}},
            {"/odm/flashback.cfg", "no property file", {}},
            {kCotaInfo, "bind_point=/" + more + "\npersisit.x=1\nsys.x=1\na b=/m", {}},
            {kDeviceName, "# ROM=384\n ROM = 1024\nmarket=" + more, {}},
            {kDeviceName, "ROMSIZE=256\nROM=384", {}},  // the first name that begins so
            {"/odm/properties/regionSwitch/x.txt", "?", {}},
            {"/odm/properties/a/other/x.txt", "?", {}},
            {"/my_company/media/logo/logo.bin", "1234", {}},
            {"/my_company/media/logo/logo.bin", "12345", {"1 logo-too-large"}},
            {"/odm/a.prop", "persist.x=" + more + "\n=2", {"1 value-too-long", "2 illegal-name"}},
            {"/odm/build.x.prop", "import\t/odm/b\na b=1", {"1 no-equals", "2 illegal-name"}},
            {kReserve + std::string("sim_switch_first_file"), "north\nx=1", {"1 no-equals"}},
            {kCotaInfo, "sys.x=" + more + "\nvendor.x=1", {"1 value-too-long", "2 not-forwarded"}},
            {kDeviceName, "ROM=512GB\nROM=512", {"1 rom-never-matches", "2 duplicate-name"}},
            {"/odm/properties/a/b/regionSwitch/x.txt", "?", {"1 skipped-file"}},
    };
    for (const auto& test : cases) {
        Write(test.path, test.content);
        Lines expected;
        for (const std::string& found : test.found) expected.push_back(test.path + ":" + found);
        EXPECT_EQ(Found(), expected) << test.path << "\n" << test.content;
        fs::remove(directory_.path + test.path);
    }
}

TEST_F(LintTest, ImportsAreResolvedOnTheDevice) {
    fs::create_directory_symlink("/mnt/vendor/my_region", Prepare("/my_region"));
    Write("/mnt/vendor/my_region/here.prop", "ro.x=here\n");
    // No property file by its name: it counts because it is imported.
    Write("/mnt/vendor/my_region/values", "ro.variant=here\nro.variant.none=\n");
    Write("/odm/build.prop",
          "import /my_region/here.prop\n"
          "import my_region/here.prop\n"
          "import /../../my_region/../my_region/here.prop\n"
          "import /my_region/values\n"
          "import /my_region/${ro.variant}.prop\n"
          "import /my_region/${ro.other:-here}.prop\n"
          "import /my_region/${ro.variant:-default}.prop\n"  // line 7
          "import /my_region/${ro.variant.none}.prop\n"
          "import /odm\n"
          "import /my_region/${ro.other}/${\n");
    EXPECT_THAT(Found(),
                ElementsAre("/odm/build.prop:7 missing-variant",
                            "/odm/build.prop:8 unset-reference", "/odm/build.prop:9 missing-import",
                            "/odm/build.prop:10 malformed-reference"));
}

TEST_F(LintTest, CyclesAreFoundHoweverTheyAreWritten) {
    fs::create_directory_symlink("/odm", Prepare("/alias"));
    Write("/odm/build.prop", "ro.x=b\nimport /odm/a\n");
    Write("/odm/a", "import /odm/leaf\nimport /alias/${ro.x}\n");
    Write("/odm/b", "import ../odm/./b ro.*\nimport /odm/leaf\nimport a\nimport /odm/a\n");
    Write("/odm/leaf", "ro.leaf=1\n");
    Write("/odm/self.prop", "import /odm/self.prop\n");
    EXPECT_THAT(Found(), ElementsAre("/odm/b:3 missing-import", "/odm/b:4 import-cycle",
                                     "/odm/self.prop:1 import-cycle"));
}

TEST_F(LintTest, OddFilesAreNamedNotRead) {
    ASSERT_EQ(mkfifo(Prepare("/odm/fifo.prop").c_str(), 0600), 0);
    Write("/odm/huge.prop", "");
    fs::resize_file(directory_.path + std::string("/odm/huge.prop"), uint64_t{1} << 40);
    fs::create_symlink("/nowhere", Prepare(kDeviceName));
    Write("/odm/build.prop", "import /odm/huge.prop\nimport /odm/fifo.prop\n");
    EXPECT_THAT(Found(), ElementsAre(kDeviceName + std::string(":1 symbolic-link"),
                                     kDeviceName + std::string(":1 rom-never-matches"),
                                     "/odm/build.prop:2 missing-import",
                                     "/odm/fifo.prop:1 not-a-file", "/odm/huge.prop:1 unreadable"));
}

TEST_F(LintTest, FindingsAreSafeToPrint) {
    const Finding finding{"a\nb", 7, Severity::kError, "no-equals", "it's \x1b[2J\r\x7f \xc3\xbc"};
    EXPECT_EQ(FindingText(finding),
              "a\\x0ab:7: error: it's \\x1b[2J\\x0d\\x7f \xc3\xbc [no-equals]");
    EXPECT_EQ(extprop::FindingsJson({finding}),
              nlohmann::json::array({{{"file", "a\nb"},
                                      {"line", 7},
                                      {"severity", "error"},
                                      {"identifier", "no-equals"},
                                      {"message", finding.message},
                                      {"image", nullptr}}}));
    // A long line is not repeated in full, nor cut within a character.
    Write("/odm/build.prop", std::string(59, 'x') + "\xc3\xbc" + std::string(1000, 'x'));
    EXPECT_THAT(Lint(directory_.path).at(0).message, HasSubstr(std::string(59, 'x') + "...'"));
}

}  // namespace
