// The findings of lint, and what it accepts.

#include "lint/lint.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <map>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "input_error.h"
#include "lint/baseline.h"
#include "lint/rule_table.h"
#include "output/code_quality.h"
#include "output/documents.h"
#include "output/sarif.h"

namespace {

namespace fs = std::filesystem;
using extprop::Finding;
using extprop::Lint;
using extprop::Severity;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
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

    void Write(const std::string& path, const std::string& content = "ro.x=1\n") const {
        std::ofstream(Prepare(path), std::ios::binary) << content;
    }

    void Clear() const {
        for (const auto& entry : fs::directory_iterator(directory_.path)) fs::remove_all(entry);
    }

    // Returns "path:line identifier" for each finding.
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

TEST_F(LintTest, LinesAreJudgedByTheUseOfTheirFile) {
    Write("/dev/block/by-name/splash_odm", "four");
    fs::create_directory(Prepare("/odm"));
    const std::string most(91, 'x');
    const std::string more(92, 'x');
    const struct {
        std::string path;
        std::string content;
        Lines found;  // after the path
    } cases[] = {
            {"/odm/build.prop",
             "persist.x=" + most + "\nro.x=" + more + "\nro.y=M\xc3\xbcller",
             {}},
            {"/odm/build.prop", "# M\xfcller\nx=1\nx=1\nx = 1\n", {}},
            {"/odm/etc/nvmap.prop", "a b=" + more, {}},
            {kReserve + std::string("sim_switch_first_file"), "north", {}},
            {kReserve + std::string("first_switch_none_clear"), "1", {}},
            {"/odm/flashback.cfg", "no property file", {}},
            {kCotaInfo, "bind_point=/" + more + "\npersisit.x=1\nsys.x=1\na b=/m", {}},
            {kDeviceName, "# ROM=384\n ROM = 1024\nmarket=" + more, {}},
            {kDeviceName, "ROMSIZE=256\nROM=384", {}},  // the first name with this prefix counts
            {"/odm/properties/regionSwitch/x.txt", "?", {}},
            {"/odm/properties/a/other/x.txt", "?", {}},
            {"/my_company/media/logo/logo.bin", "1234", {}},
            {"/my_company/media/logo/logo.bin", "12345", {"1 logo-too-large"}},
            {"/odm/build.prop", "ro.x=1\nro.y=1\r\nro.z=1\r\n", {"2 crlf"}},
            {"/odm/build.prop",
             "persist.x=" + more + "\n=2",
             {"1 value-too-long", "2 illegal-name"}},
            {"/mnt/vendor/my_region/build.prop",
             "import\t/odm/b\na b=1",
             {"1 no-equals", "2 illegal-name"}},
            {kReserve + std::string("sim_switch_first_file"), "north", {}},
            {kReserve + std::string("sim_switch_first_file"), "north\n", {"1 bare-key"}},
            {kReserve + std::string("sim_switch_first_file"),
             "north\nx=1",
             {"1 no-equals", "1 missing-key"}},
            {kReserve + std::string("sim_switch_first_file"),
             "sys.x=1\nimport /odm/none",  // which may set the key
             {"2 missing-import"}},
            {"/data/system/customize/sim_switch/sim_switch_first_file",
             "north",
             {"1 no-equals", "1 missing-key"}},
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
    // Not a property file by its name, but because it is imported.
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
          "import /my_region/${ro.variant}/${\n");
    EXPECT_THAT(Found(),
                ElementsAre("/odm/build.prop:5 late-reference", "/odm/build.prop:7 missing-import",
                            "/odm/build.prop:7 late-reference", "/odm/build.prop:8 unset-reference",
                            "/odm/build.prop:9 missing-import",
                            "/odm/build.prop:10 malformed-reference"));
}

TEST_F(LintTest, CyclesAreFoundHoweverTheyAreWritten) {
    fs::create_directory_symlink("/odm", Prepare("/alias"));
    Write("/odm/build.prop", "ro.x=b\nimport /odm/a\n");
    Write("/odm/a", "import /odm/leaf\nimport /alias/${ro.x}\n");
    Write("/odm/b", "import ../odm/./b ro.*\nimport /odm/leaf\nimport a\nimport /odm/a\nro.b=1\n");
    Write("/odm/leaf", "ro.leaf=1\n");
    Write("/odm/etc/flags.prop", "import /odm/etc/flags.prop\n");
    // The last file makes the library fail when lint lets it read the device.
    EXPECT_THAT(Found(),
                ElementsAre(":1 not-checked", "/odm/b:3 missing-import", "/odm/b:4 import-cycle",
                            "/odm/etc/flags.prop:1 import-cycle"));
}

TEST_F(LintTest, OddFilesAreNamedNotRead) {
    ASSERT_EQ(mkfifo(Prepare("/odm/fifo.prop").c_str(), 0600), 0);
    Write("/odm/huge.prop", "");
    fs::resize_file(directory_.path + std::string("/odm/huge.prop"), uint64_t{1} << 40);
    fs::create_symlink("/nowhere", Prepare(kDeviceName));
    // A boot would wait for the named pipe.
    Write("/odm/etc/more.prop", "import /odm/huge.prop\nimport /odm/fifo.prop\n");
    EXPECT_THAT(Found(),
                ElementsAre(kDeviceName + std::string(":1 symbolic-link"),
                            "/odm/etc/more.prop:1 unread-file",
                            "/odm/etc/more.prop:2 missing-import", "/odm/fifo.prop:1 not-a-file",
                            "/odm/huge.prop:1 unread-file", "/odm/huge.prop:1 unreadable"));
}

TEST_F(LintTest, WhatNothingReadsIsFoundAndNothingElse) {
    const struct {
        Lines paths;
        Lines found;
    } cases[] = {
            {{"/odm/properties/a/simswitchfirst/x.prop"},
             {"/odm/properties/a/simswitchfirst:1 unknown-kind 'SimSwitchFirstTime'"}},
            {{"/odm/properties/a/b/c/x.prop"},
             {"/odm/properties/a/b/c:1 unknown-kind switchCarrierChannel"}},
            {{"/odm/properties/a/x.prop", "/odm/properties/x.prop"},
             {"/odm/properties:1 no-kind", "/odm/properties/a:1 no-kind SimSwitchCurrentTime"}},
            {{"/odm/properties/regionSwitch/x.prop"},
             {"/odm/properties/regionSwitch:1 no-kind key"}},
            {{"/odm/properties/a/regionSwitch/b/c/x.prop",
              "/odm/properties/a/regionSwitch/b/y.prop"},
             {"/odm/properties/a/regionSwitch/b:1 nested-directory"}},
            {{"/odm/property/x.prop", "/odm/etc/a/regionSwitch/x.prop"},
             {"/odm/etc:1 misspelt-properties", "/odm/property:1 misspelt-properties"}},
            {{"/odm/etc/properties/a/regionSwitch/x.prop"},
             {"/odm/etc/properties:1 unsearched-root '/odm/etc'"}},
            {{"/mnt/vendor/My_Stocks/x.prop", "/mnt/vendor/my_stock/build.prop", "/odn/build.prop"},
             {"/mnt/vendor/My_Stocks:1 misspelt-partition '/mnt/vendor/my_stock'",
              "/odn:1 misspelt-partition '/odm'"}},
            {{"/my_games/build.prop", "/my_media/etc/x.prop"}, {"/my_games:1 unknown-partition"}},
            // The system mounts the partitions there too, or there are only these.
            {{"/my_stock/etc/x.prop", "/mnt/vendor/my_stock/etc/x.prop"},
             {"/mnt/vendor/my_stock/etc/x.prop:1 unread-file"}},
            {{"/my_stock/build.prop"}, {"/my_stock:1 unknown-partition '/mnt/vendor/my_stock'"}},
            {{"/mnt/vendor/my_region/global/X/build.prop", "/mnt/vendor/my_region/buildprop.prop",
              "/my_company/x.prop", "/data/cota/cota_mont_info.prop", "/odm/etc/build.north.prop"},
             {"/data/cota/cota_mont_info.prop:1 unread-file 'cota_mount_info.prop'",
              "/mnt/vendor/my_region/buildprop.prop:1 unread-file",
              "/mnt/vendor/my_region/global/X/build.prop:1 unread-file is no partition root",
              "/my_company/x.prop:1 unread-file", "/odm/etc/build.north.prop:1 unread-file"}},
            // Files that another brand, region, key, package or step, or the system itself, reads.
            {{"/odm/build.prop", "/mnt/vendor/my_region/global/V/build.prop",
              "/mnt/vendor/my_product/cust/XX/build.prop",
              "/my_company/properties/a/regionSwitch/x.prop", "/my_carrier/build.prop",
              "/my_carrier/cust/properties/a/b/regionSwitch/x.prop", "/mnt/cota/a/build.prop",
              "/mnt/cota/a/properties/b/x.prop", "/oem/oem.prop", "/system/build.prop",
              "/vendor/etc/x.prop", "/odm/etc/build.prop", "/mnt/vendor/persist/x.prop",
              "/data/system/x.prop", "/odm/etc/nvmap.prop"},
             {}},
    };
    for (const auto& test : cases) {
        Clear();
        for (const std::string& path : test.paths) Write(path);
        const std::vector<Finding> findings = Lint(directory_.path);
        EXPECT_EQ(findings.size(), test.found.size()) << testing::PrintToString(Found());
        for (size_t i = 0; i < std::min(findings.size(), test.found.size()); ++i) {
            // The finding's place and identifier, and a part of its message.
            const size_t blank = test.found[i].find(' ');
            const size_t part = std::min(test.found[i].find(' ', blank + 1), test.found[i].size());
            EXPECT_EQ(Found()[i], test.found[i].substr(0, part));
            if (part == test.found[i].size()) continue;
            EXPECT_THAT(findings[i].message, HasSubstr(test.found[i].substr(part + 1)));
        }
    }
}

TEST_F(LintTest, PartitionsAreKnownBehindLinksAndPackages) {
    Write("/data/cota/cota_mount_info.prop", "bind_point=/my_games\n");
    Write("/my_games/build.prop");
    Write("/my_games2/build.prop");
    Write("/my_region/build.prop");
    Write("/my_region/V/build.prop");
    Write("/my_region/W/build.prop");
    Write("/my_region/property/a/regionSwitch/x.prop");
    Write("/my_stock/build.prop");
    fs::create_directory_symlink("/my_region", Prepare("/mnt/vendor/my_region"));
    EXPECT_THAT(Found(), ElementsAre("/my_games2:1 unknown-partition",
                                     "/my_region/W/build.prop:1 unread-file",
                                     "/my_region/property:1 misspelt-properties",
                                     "/my_stock:1 unknown-partition"));
}

TEST_F(LintTest, ImportsKeepFilesAliveAsFarAsTheyAreFollowed) {
    Write("/odm/build.prop",
          "import /odm/etc/a.prop ro.*\nimport /odm//deep/${ro.dir}.prop\nimport /odm/etc/e.prop\n"
          "import /my_regiom/g\n");
    Write("/my_regiom/g");  // no misspelt partition then
    Write("/my_regiom/build.prop");
    Write("/odm/etc/a.prop", "ro.a=1\nimport /odm/etc/b.prop\n");  // under a filter
    Write("/odm/etc/b.prop");
    Write("/odm/deep/er/c.prop");  // a value may have slashes
    Write("/mnt/vendor/my_stock/etc/d.prop", "import /odm/etc/e.prop\nimport /odm/etc/f.prop\n");
    Write("/odm/etc/e.prop");
    Write("/odm/etc/f.prop");
    EXPECT_THAT(
            Found(),
            ElementsAre("/mnt/vendor/my_stock/etc/d.prop:1 unread-file",
                        "/my_regiom/build.prop:1 unread-file", "/odm/build.prop:2 unset-reference",
                        "/odm/etc/b.prop:1 unread-file", "/odm/etc/f.prop:1 unread-file"));
    // Not all values with which this import may lead to the one file can be tried.
    Clear();
    Write("/odm/build.prop", "import /${a}${b}${c}${d}${e}${f}${a}x.prop\n");
    Write("/odm/etc/a/directory/of/a/long/path/in/which/a/file/lies/x.prop");
    Write("/odm/etc/y.prop");
    EXPECT_THAT(Found(),
                ElementsAre("/odm/build.prop:1 unset-reference", "/odm/etc/y.prop:1 unread-file"));
}

TEST_F(LintTest, ReferencesAreLateIfNoFileIsHandedOverBefore) {
    constexpr char kEarly[] = "/odm/build.prop";
    constexpr char kOverlay[] = "/odm/properties/a/regionSwitch/x.prop";
    constexpr char kOtherOverlay[] = "/mnt/vendor/my_stock/properties/b/SimSwitchFirstTime/x.prop";
    constexpr char kKey[] = "/data/system/customize/sim_switch/sim_switch_first_file";
    constexpr char kCompany[] = "/my_company/build.prop";
    constexpr char kData[] = "/data/system/customize/empty_appchannel_prop_file.prop";
    const struct {
        std::string setter;
        std::string importer;
        bool is_late;
        std::string name = "ro.v";
        std::string fallback = "x";
    } cases[] = {
            {kEarly, "/mnt/vendor/my_stock/build.prop", true},
            {kOverlay, kEarly, true},
            {kKey, kEarly, true},
            {kEarly, kOverlay, false},
            {kKey, kOverlay, false},
            {kOtherOverlay, kOverlay, true},
            {kData, kOverlay, true},
            {kData, kCompany, true},
            {kOverlay, kCompany, false},
            {"/system/build.prop", kEarly, false},
            {kEarly, "/my_carrier/build.prop", false},
            {kOverlay, kEarly, false, "ro.boot.v"},
            {kOverlay, kEarly, false, "ro.v", "1"},
            {kOverlay, kEarly, true, "persist.v"},
            {kOtherOverlay, kOverlay, false, "persist.v"},
    };
    for (const auto& test : cases) {
        Clear();
        Write(kEarly, "");
        Write("/odm/x", "");
        Write("/odm/1", "");
        Write(test.importer, "import /odm/${" + test.name + ":-" + test.fallback + "}\n");
        Write(test.setter, "sys.sim.switch.first=a\n" + test.name + "=1\n");
        Lines late;  // apart from findings about imports that no value leads to
        for (const std::string& found : Found()) {
            if (android::base::EndsWith(found, " late-reference")) late.push_back(found);
        }
        EXPECT_EQ(late, test.is_late ? Lines{test.importer + ":1 late-reference"} : Lines{})
                << test.setter << " " << test.name;
    }
}

TEST_F(LintTest, ImportsAreFollowedInBoots) {
    Write("/mnt/vendor/my_region/build.prop", "ro.tesvo.pipeline.region=EU\n");
    Write("/mnt/vendor/my_product/cust/EU/build.prop", "ro.a=1\nro.b=2\n");
    Write("/mnt/vendor/my_product/cust/US/build.prop", "ro.a=2\nro.b=1\n");
    Write("/data/system/customize/empty_appchannel_prop_file.prop",
          "import /odm/${ro.a}/${ro.b}.prop\n");
    Write("/odm/1/2.prop");
    Write("/odm/2/1.prop");
    EXPECT_EQ(Found(), Lines{});  // though /odm/1/1.prop is not there
    Write("/mnt/vendor/my_product/cust/IN/build.prop", "ro.a=1\nro.b=1\n");
    const std::vector<Finding> findings = Lint(directory_.path);
    ASSERT_EQ(findings.size(), 1u) << testing::PrintToString(Found());
    EXPECT_EQ(findings[0].identifier, "missing-variant");
    EXPECT_EQ(findings[0].message,
              "in 1 of 4 boots this import leads to '/odm/1/1.prop', which is not there; "
              "'--region IN' is the first");
    fs::remove_all(directory_.path + std::string("/odm"));
    EXPECT_EQ(Lint(directory_.path).at(0).identifier, "missing-import");
}

TEST_F(LintTest, FiltersArePassedByTheImportedLines) {
    Write("/odm/c=1");
    Write("/odm/a.prop", "ro.a=1\nimport /odm/c=1\n");
    Write("/odm/build.prop",
          "import /odm/a.prop ro.a\n"
          "import /odm/a.prop   ro.*\n"
          "import /odm/a.prop import /odm/c\n"
          "import /odm/a.prop ro.a # this one\n"
          "import /odm/a.prop r.a*\n"
          "import /odm/a.prop RO.A\n");
    EXPECT_THAT(Found(),
                ElementsAre("/odm/build.prop:4 idle-filter", "/odm/build.prop:5 idle-filter",
                            "/odm/build.prop:6 idle-filter", "/odm/c=1:1 unread-file"));
    EXPECT_THAT(Lint(directory_.path)[2].message, HasSubstr("did you mean 'ro.a'?"));
}

TEST_F(LintTest, LoadsAreCountedByTheWaysThatImportsLead) {
    const struct {
        int levels;
        Lines found;
    } cases[] = {
            {6, {}},  // 96 times
            {7, {"/odm/build.prop:1 import-multiplies"}},
            {90, {":1 not-checked", "/odm/build.prop:1 import-multiplies"}},  // endless boots
    };
    for (const auto& test : cases) {
        Clear();
        // Of the files that an import may lead to, the one with the most imports counts.
        Write("/odm/build.prop",
              "import /odm/etc/${ro.boot.v}.prop\nimport /odm/etc/1.prop\n"
              "import /odm/etc/1.prop\n");
        for (int i = 1; i < test.levels; ++i) {
            const std::string line = "import /odm/etc/" + std::to_string(i + 1) + ".prop";
            Write("/odm/etc/" + std::to_string(i) + ".prop", line + "\n" + line + "\n");
        }
        Write("/odm/etc/" + std::to_string(test.levels) + ".prop", "ro.x=1\nro.boot.v=x\n");
        Write("/odm/etc/x.prop", "ro.boot.v=1\n");
        EXPECT_EQ(Found(), test.found);
        if (test.levels != 7) continue;
        EXPECT_THAT(Lint(directory_.path)[0].message, HasSubstr("7.prop' 192 times"));
    }
    // Under a filter a file's own imports are not followed.
    Clear();
    std::string lines = "import /odm/etc/a.prop\n";
    for (int i = 0; i < 98; ++i) lines += "import /odm/etc/a.prop ro.*\n";
    Write("/odm/build.prop", lines);
    Write("/odm/etc/a.prop", "ro.a=1\nimport /odm/etc/b.prop\nimport /odm/etc/b.prop\n");
    Write("/odm/etc/b.prop");
    EXPECT_EQ(Found(), Lines{});
    // A chain may be longer than a stack holds.
    Clear();
    Write("/odm/build.prop", "import /odm/etc/1.prop\n");
    for (int i = 1; i < 400; ++i) {
        Write("/odm/etc/" + std::to_string(i) + ".prop",
              "import /odm/etc/" + std::to_string(i + 1) + ".prop\n");
    }
    Write("/odm/etc/400.prop");
    EXPECT_THAT(Found(), ElementsAre("/odm/etc/200.prop:1 not-checked"));
}

TEST_F(LintTest, FindingsAreSafeToPrint) {
    const Finding finding{"a\nb", 7, Severity::kError, "no-equals", "it's \x1b[2J\r\x7f \xc3\xbc"};
    EXPECT_EQ(FindingText(finding),
              "a\\x0ab:7: error: it's \\x1b[2J\\x0d\\x7f \xc3\xbc [no-equals]");
    // A long line is shortened, but not within a character.
    Write("/odm/build.prop", std::string(59, 'x') + "\xc3\xbc" + std::string(1000, 'x'));
    EXPECT_THAT(Lint(directory_.path).at(0).message, HasSubstr(std::string(59, 'x') + "...'"));
}

TEST_F(LintTest, WhatIsNoDeviceIsAnError) {
    EXPECT_THAT(Found(), ElementsAre(":1 no-device"));
    Write("/mnt/my_stock/x.prop");
    Write("/phone/odm/build.prop", "import /none\n");
    Write("/etc/build.prop");
    EXPECT_THAT(Found(), ElementsAre(":1 no-device"));
    EXPECT_THAT(Lint(directory_.path)[0].message, HasSubstr("'phone'"));
    EXPECT_EQ(Lint(directory_.path)[0].severity, Severity::kError);
}

// Makes the files of a rule's example; docs/lint.md describes their notation.
class ExampleTest : public LintTest {
  protected:
    void Make(const std::string& example) const {
        std::string path, content;
        const auto finish = [&] {
            if (!path.empty()) MakeOne(path, content.empty() ? "ro.x=1\n" : content);
            content.clear();
        };
        for (std::string line : android::base::Split(example, "\n")) {
            if (line[0] == '/') {
                finish();
                path = line;
                continue;
            }
            line = android::base::StringReplace(line.substr(4), "\\r", "\r", true);
            line = android::base::StringReplace(line, "\\xfc", "\xfc", true);
            content += android::base::StringReplace(line, "\\0", std::string(1, '\0'), true) + "\n";
        }
        finish();
    }

  private:
    void MakeOne(const std::string& path, const std::string& content) const {
        const size_t link = path.find(" -> "), size = path.find(", ");
        if (path.back() == '/') {
            fs::create_directories(Prepare(path));
        } else if (link != std::string::npos) {
            fs::create_symlink(path.substr(link + 4), Prepare(path.substr(0, link)));
        } else {
            Write(path.substr(0, size), content);
            if (size == std::string::npos) return;
            fs::resize_file(Prepare(path.substr(0, size)), std::stoull(path.substr(size + 2))
                                                                   << 20);
        }
    }
};

TEST_F(ExampleTest, BadOnesHaveTheFindingAndGoodOnesNone) {
    for (const extprop::Rule& rule : extprop::kRules) {
        Clear();
        Make(rule.good);
        EXPECT_EQ(Found(), Lines{}) << rule.identifier;
        Clear();
        Make(rule.bad);
        EXPECT_THAT(Found(), Contains(EndsWith(std::string(" ") + rule.identifier)));
    }
}

TEST_F(LintTest, CommentsAllowFindings) {
    const struct {
        std::string content;
        Lines found;  // or the error, after the path
    } cases[] = {
            {"\n# extprop: allow no-equals: an old parser needs it\nro.x 1\nro.y 1\n",
             {"4 no-equals"}},
            {"ro.x=1\n  #extprop:allow illegal-name , no-equals:x\r\nro.x 1\n",
             {"2 crlf", "2 unused-allowance"}},
            {"# extprop: allow no-equals: all of it\nro.x 1\n\nro.y 1\n", {}},
            {"\n# extprop: allow no-equals: one\n# extprop: allow crlf: other\nro.x 1\r\n", {}},
            {"\n# extprop: allow crlf: it is the line above that has one\nro.x=1\n",
             {"2 unused-allowance"}},
            {"ro.x=1\n# extprop: allow crlf: nothing follows", {"2 unused-allowance"}},
            {"# extprop: allow symbolic-link: of the file, not of a line\n",
             {"1 unused-allowance"}},
            {"# extprop is a tool\n", {}},
            {"\n# extprop: allow no-equal: x\n", {":2: unknown rule 'no-equal'; did you mean"}},
            {"\n# extprop: allow crlf\n", {":2: expected '# extprop: allow RULE[, RULE]: reason'"}},
            {"# extprop: allow crlf: \n", {":1: the reason is missing"}},
            {"# extprop: alow crlf: x\n", {":1: expected"}},
            {"# extprop: allow unused-allowance: x\n", {":1: a comment that allows nothing"}},
    };
    for (const auto& test : cases) {
        Write("/odm/build.prop", test.content);
        const bool is_error = !test.found.empty() && test.found[0][0] == ':';
        Lines expected;
        for (const std::string& found : test.found) expected.push_back("/odm/build.prop:" + found);
        try {
            EXPECT_EQ(Found(), expected) << test.content;
            EXPECT_FALSE(is_error) << test.content;
        } catch (const extprop::InputError& error) {
            ASSERT_TRUE(is_error) << error.what();
            EXPECT_THAT(error.what(), HasSubstr(directory_.path + std::string("/odm/build.prop") +
                                                test.found[0]));
        }
    }
    // A comment is not useless because something cannot be checked.
    Write("/odm/build.prop", "# extprop: allow late-reference: x\n");
    Write("/odm/etc/flags.prop", "import /odm/etc/flags.prop\n");
    EXPECT_THAT(Found(), ElementsAre(":1 not-checked", "/odm/etc/flags.prop:1 import-cycle"));
}

TEST_F(LintTest, FingerprintsStayWhereLinesMove) {
    const auto fingerprints = [&] {
        std::map<std::string, std::string> found;
        for (const Finding& finding : Lint(directory_.path)) {
            EXPECT_TRUE(found.emplace(finding.fingerprint, finding.text).second);
        }
        return found;
    };
    Write("/odm/build.prop", "ro.x 1\nro.x 1\nro.y 1\n");
    Write("/odm/etc/spare.prop", "ro.x=1\n");
    const auto before = fingerprints();
    ASSERT_EQ(before.size(), 4U);
    Write("/odm/build.prop", "# new\nro.y 1\nro.x=1\n  ro.x 1\n\nro.x 1\n");
    Write("/odm/etc/spare.prop", "ro.other=1\n");
    EXPECT_EQ(fingerprints(), before);

    const std::string path = Prepare("/baseline.json");
    Write("/baseline.json", extprop::BaselineText(Known(Lint(directory_.path))));
    Write("/odm/build.prop", "ro.x 1\nro.z 1\n");
    extprop::LintReport report;
    report.findings = Lint(directory_.path);
    const auto baseline = extprop::ReadBaseline(path, "");
    EXPECT_EQ(extprop::TakeKnown(baseline, &report.findings, &report).size(), 2U);
    EXPECT_EQ(report.known, 2U);
    ASSERT_EQ(report.findings.size(), 1U);
    EXPECT_EQ(report.findings[0].text, "ro.z 1");
    ASSERT_EQ(report.fixed.size(), 2U);
    EXPECT_EQ(report.fixed[0].text + report.fixed[1].text, "ro.y 1ro.x 1");
    EXPECT_EQ(report.fixed[0].line, 2);
    // If not everything could be checked, it is unknown what is fixed.
    Write("/odm/etc/flags.prop", "import /odm/etc/flags.prop\n");
    report.findings = Lint(directory_.path);
    report.fixed.clear();
    EXPECT_EQ(extprop::TakeKnown(baseline, &report.findings, &report).size(), 4U);
    EXPECT_EQ(report.fixed.size(), 0U);

    const struct {
        const char* content;
        const char* error;
    } mistakes[] = {
            {"", ":1: this is no JSON"},
            {"{\n\"a\": [,]}", ":2: this is no JSON"},
            {"[]", ":1: this is no baseline"},
            {"{\n\"format\": 2, \"findings\": []}", ":2: this baseline has the format 2"},
            {"{\"format\": 1}", ":1: there is no list"},
            {"{\"findings\": [\n{\"path\": 1}], \"format\": 1}", ":2: this is no finding"},
    };
    for (const auto& mistake : mistakes) {
        Write("/baseline.json", mistake.content);
        try {
            extprop::ReadBaseline(path, "");
            ADD_FAILURE() << mistake.content;
        } catch (const extprop::InputError& error) {
            EXPECT_THAT(error.what(), HasSubstr(path + mistake.error));
        }
    }
}

TEST_F(LintTest, OneReasonIsToldOnce) {
    Write("/odm/build.prop", "import /none\nimport /none\nro.x 1\nro.x 1\nro.x \xfc\nro.y \xfc\n");
    Write("/mnt/vendor/my_stock/build.prop", "ro.x 1\nimport /none\n");
    Lines found;
    for (const Finding& finding : Grouped(Lint(directory_.path))) {
        found.push_back(finding.path + ":" + std::to_string(finding.line) + " " +
                        finding.identifier + MessageText(finding).substr(finding.message.size()));
    }
    EXPECT_THAT(found,
                ElementsAre("/mnt/vendor/my_stock/build.prop:1 no-equals",
                            "/mnt/vendor/my_stock/build.prop:2 missing-import (3 times; also "
                            "in /odm/build.prop:1, /odm/build.prop:2)",
                            "/odm/build.prop:3 no-equals (2 times; also in line 4)",
                            "/odm/build.prop:5 not-utf8 (2 times; also in line 6)"));
}

// The reports of findings for code review services.
class ReportTest : public LintTest {
  protected:
    Finding Of(const std::string& path, int line, const char* rule, const std::string& message) {
        Finding finding{directory_.path + path, line, extprop::RuleNamed(rule).severity, rule,
                        message};
        finding.path = path;
        finding.fingerprint = "f:1";
        return finding;
    }
};

TEST_F(ReportTest, FilesAreNamedFromTheWorkTree) {
    const std::string device = fs::canonical(directory_.path).string() + "/a tree/a:b";
    fs::create_directories(device + "/odm");
    const auto file = [&](const std::string& path, const extprop::SourceRoot& root) {
        const auto log = SarifLog({Of(path, 7, "crlf", "")}, root, "");
        return log["runs"][0]["results"][0]["locations"][0]["physicalLocation"]["artifactLocation"];
    };
    const auto expected = [](const char* uri, const char* base) {
        return nlohmann::json{{"uri", uri}, {"uriBaseId", base}};
    };
    // The temporary directory should not be in a work tree.
    const extprop::SourceRoot none(device);
    EXPECT_EQ(file("/odm/\xc3\xbc b\xff", none), expected("odm/%C3%BC%20b%FF", "DEVICE"));
    EXPECT_EQ(file("", none), expected(".", "DEVICE"));
    const auto log = SarifLog({}, none, "");
    EXPECT_EQ(log["runs"][0]["originalUriBaseIds"]["DEVICE"]["uri"],
              "file://" + extprop::UriOf(device) + "/");

    std::ofstream(Prepare("/a tree/.git")) << "gitdir: elsewhere\n";
    const extprop::SourceRoot tree(device + "//");
    EXPECT_EQ(file("/odm/x", tree), expected("a%3Ab/odm/x", "%SRCROOT%"));
    EXPECT_EQ(file("", tree), expected("a%3Ab", "%SRCROOT%"));
    const extprop::SourceRoot above(device, directory_.path);
    EXPECT_EQ(file("/odm/x", above), expected("a%20tree/a%3Ab/odm/x", "%SRCROOT%"));
    EXPECT_THROW(extprop::SourceRoot(device, device + "/odm"), extprop::InputError);

    const auto report = CodeQualityReport({Of("/odm/x y", 7, "crlf", "a\nb")}, tree);
    const nlohmann::json found = {
            {"check_name", "crlf"},
            {"description", "a\\x0ab"},
            {"severity", "minor"},
            {"fingerprint", report[0]["fingerprint"]},
            {"location", {{"path", "a:b/odm/x y"}, {"lines", {{"begin", 7}}}}}};
    EXPECT_EQ(report, nlohmann::json::array({found}));
    const auto same_elsewhere = CodeQualityReport({Of("/odm/x y", 7, "crlf", "")}, above);
    EXPECT_NE(report[0]["fingerprint"], same_elsewhere[0]["fingerprint"]);
}

TEST_F(ReportTest, SarifTellsErrorsFirstAndWhatItLeavesOut) {
    std::vector<Finding> findings(4999, Of("/w", 1, "crlf", "[a](http://b)"));
    findings.push_back(Of("/e", 1, "no-equals", ""));
    const extprop::SourceRoot root(directory_.path);
    const auto run = [&] { return SarifLog(findings, root, "phones")["runs"][0]; };
    const auto all = run();
    EXPECT_EQ(all["results"][0]["message"]["text"], "[a\\](http://b)");
    EXPECT_EQ(all["results"].size(), 5000U);
    EXPECT_EQ(all["automationDetails"]["id"], "phones/");
    EXPECT_FALSE(all["invocations"][0].contains("toolExecutionNotifications"));
    findings.push_back(Of("/e", 1, "no-equals", ""));
    const auto less = run();
    EXPECT_EQ(less["results"].size(), 5000U);
    EXPECT_EQ(less["results"][1]["ruleId"], "no-equals");
    const auto& notification = less["invocations"][0]["toolExecutionNotifications"][0];
    EXPECT_THAT(std::string(notification["message"]["text"]),
                HasSubstr(": 0 errors and 1 warning "));
}

}  // namespace
