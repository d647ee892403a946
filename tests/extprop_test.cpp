// The tool as people and scripts use it: its arguments, output and exit status.

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "snapshot.h"
#include "tool.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

class ExtpropTest : public ToolTest {};

TEST_F(ExtpropTest, ASecondBootKeepsFilesAndPersistentProperties) {
    const Output company =
            Run("boot --json " + Sample("company-image") + " early persist reboot early persist");
    json report = json::parse(company.out);
    ASSERT_EQ(report["steps"].size(), 4u);
    EXPECT_EQ(report["steps"][3]["boot"], 2);
    for (const json& event : report["steps"][3]["events"]) {
        EXPECT_EQ(event.value("mode", 0), 0);
    }
    EXPECT_FALSE(report["properties"].contains("sys.sample.company.greeting"));

    // What was given comes back, but for what the phone itself has kept otherwise.
    const Output emergency = Run("boot -q " + Sample("emergency") +
                                 " persist reboot --set ro.given=1 --set "
                                 "persist.sys.911.shutdown=1 --set persist.sys.channel.info=x");
    EXPECT_THAT(emergency.out, HasSubstr("[ro.given]: [1]\n"));
    EXPECT_THAT(emergency.out, HasSubstr("[persist.sys.channel.info]: []\n"));
    EXPECT_THAT(emergency.out, Not(HasSubstr("ro.sys.customize.flashback.company")));
}

TEST_F(ExtpropTest, LogoIsCopiedOrSaidNotToBePlayable) {
    const std::string steps = " early sim:triggerLogoCopyFromCompanyBoot ";
    const Output output = Run("boot " + Sample("boot-logo") + steps + "reboot" + steps);
    EXPECT_EQ(output.status, 0);
    if (geteuid() != 0) {
        EXPECT_THAT(output.err, HasSubstr("extprop: note: the logo copy cannot be played here: "));
        return;
    }
    const std::string copied =
            "  property_set persist.record.my_company.date.forlogo=1763683200\n"
            "  logo: 2000 bytes of /my_company/media/logo/logo.img written to the splash "
            "partition\n";
    const size_t first = output.out.find(copied);
    ASSERT_NE(first, std::string::npos) << output.out;
    EXPECT_EQ(output.out.find(copied, first + 1), std::string::npos);
}

TEST_F(ExtpropTest, TheDeviceDirectoryStaysAsItWas) {
    const sandbox::Snapshot before = sandbox::TakeSnapshot(Sample("older-software"));
    EXPECT_EQ(Run("boot -q " + Sample("older-software")).status, 0);
    EXPECT_TRUE(Changes(before, sandbox::TakeSnapshot(Sample("older-software"))).empty());
}

TEST_F(ExtpropTest, ReportIsOneJsonDocument) {
    Write("/odm/build.prop", "a=\xff\nimport /odm/${none}\n");
    const Output output = Run("boot --json " + Path("") + " early:/odm --set a=0");
    const json report = json::parse(output.out);
    EXPECT_EQ(report["format"], 2);
    EXPECT_EQ(report["device"], Path(""));
    EXPECT_TRUE(report["notes"].empty());
    EXPECT_TRUE(report["failure"].is_null());
    EXPECT_EQ(report["properties"], json({{"a", "0"}}));
    const json& step = report["steps"][0];
    EXPECT_EQ(step["step"], "early:/odm");
    EXPECT_EQ(step["files"], json::array());
    EXPECT_THAT(step["events"].dump(),
                HasSubstr("{\"event\":\"open\",\"for\":\"reading\",\"path\":\"/odm/build.prop\"}"));
    EXPECT_EQ(step["events"].back(), json({{"event", "map"},
                                           {"properties", {{"a", "\xef\xbf\xbd"}}},
                                           {"changes", json::array()},
                                           {"refused",
                                            {{{"name", "a"},
                                              {"value", "\xef\xbf\xbd"},
                                              {"reason", "Value is not a UTF8 encoded string"}}}},
                                           {"operations", {"loadExtensionPartitionProperties"}},
                                           {"map", 0}}));
    EXPECT_THAT(step["events"].dump(), HasSubstr("\"severity\":\"ERROR\""));
}

TEST_F(ExtpropTest, PageIsWrittenWholeOrNotAtAll) {
    const std::string page = Path("/page.html");
    const Output booted = Run("boot --json " + Sample("overlay") + " early --html " + page);
    EXPECT_EQ(booted.status, 0) << booted.err;
    EXPECT_THAT(booted.out, Not(HasSubstr("\"content\"")));
    EXPECT_FALSE(json::parse(booted.out).contains("property_files"));
    std::string content;
    ASSERT_TRUE(android::base::ReadFileToString(page, &content));
    EXPECT_THAT(content, HasSubstr("\"/mnt/vendor/my_engineering/build.prop\""));
    EXPECT_EQ(Run("explain --all " + Sample("overlay") + " early --html " + page).status, 0);

    // A page that does not fit leaves nothing of it.
    const std::string small = "trap '' XFSZ; ulimit -f 16; " EXTPROP " boot -q " +
                              Sample("overlay") + " early --html " + Path("/full.html");
    EXPECT_NE(system((small + " >/dev/null 2>&1").c_str()), 0);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Path("")), {}), 1);

    const Output nowhere = Run("boot " + Sample("overlay") + " early --html " + Path("/none/x"));
    EXPECT_EQ(nowhere.status, 2);
    EXPECT_EQ(nowhere.out, "");
    EXPECT_EQ(nowhere.err, "extprop: " + Path("/none/x") + ": No such file or directory\n");
}

TEST_F(ExtpropTest, LintEndsWithTheErrorsThatItFinds) {
    const Output faulty = Run("lint " + Sample("faulty"));
    EXPECT_EQ(faulty.status, 1);
    EXPECT_THAT(faulty.out, HasSubstr(Sample("faulty") + "/odm/etc/radio.prop:2: error: "));
    EXPECT_EQ(faulty.err, "");
    const Output warned = Run("lint --json " + Sample("carrier-package"));
    EXPECT_EQ(warned.status, 0);
    EXPECT_EQ(json::parse(warned.out)["findings"][0]["severity"], "warning");
    EXPECT_EQ(Run("lint " + Path("/none")).err,
              "extprop: " + Path("/none") + ": No such file or directory\n");
}

TEST_F(ExtpropTest, CrashesAndHangsAreReported) {
    const std::string file = Write("/odm/build.prop", "import /odm/other.prop\n");
    Write("/odm/other.prop", "import /odm/build.prop\n");
    const Output crashed = Run("boot -q " + Path("") + " early");
    EXPECT_EQ(crashed.status, 3);
    EXPECT_EQ(crashed.out, "");
    EXPECT_THAT(crashed.err, testing::MatchesRegex("extprop: the library crashed with SIGSEGV in "
                                                   "step early, last loading /odm/[a-z]+.prop\n"));

    std::filesystem::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), 0644), 0);
    const Output hung = Run("boot --json --timeout 1 " + Path("") + " early persist");
    EXPECT_EQ(hung.status, 3);
    const json report = json::parse(hung.out);
    EXPECT_EQ(report["failure"], json({{"step", "early"},
                                       {"timed_out", true},
                                       {"signal", nullptr},
                                       {"last_file", "/odm/build.prop"}}));
}

TEST_F(ExtpropTest, PropertiesComeFromFiles) {
    const std::string listed = Write("/listed", "[ro.a]: [1]\n[multi]: [one\n\ntwo]\n[e]: []\n");
    const std::string plain = Write("/plain", "# comment\n ro.a = 2 \n\nb==\n");
    const Output output = Run("boot -q " + Sample("overlay") +
                              " early:/missing --set b=3 --props " + listed + " --props " + plain);
    EXPECT_EQ(output.out, "[b]: [3]\n[e]: []\n[multi]: [one\n\ntwo]\n[ro.a]: [2]\n");
}

TEST_F(ExtpropTest, BadInputIsOneLineAndNothingElse) {
    const std::string file = Write("/file", "a=1\nno equals\n");
    const std::string open = Write("/open", "a=1\n[b]: [open\n");
    const std::string import = Write("/import", "import /x\n");
    const std::string device = "boot " + Sample("overlay");
    const struct {
        std::string arguments;
        std::string error;
    } cases[] = {
            {"", "A subcommand is required"},
            {"boto x", "unknown command 'boto'; did you mean boot?"},
            {"boot", "DEVICE is required"},
            {"boot " + Path("/none"), Path("/none") + ": No such file or directory"},
            {"boot " + file, file + ": Not a directory"},
            {device + " earl", "unknown step 'earl'; see extprop boot --help"},
            {device + " persist:x", "step 'persist:x': 'persist' takes no argument"},
            {device + " sim:simSwitch",
             "step 'sim:simSwitch': the library ignores it, it takes one of simSwitchCurrent "
             "simSwitchFirst updateDataCommonProp emptyAppchannelProp switchCarrierChannel "
             "regionSwitch triggerLogoCopyFromCompanyBoot triggerLogoCopyFromCompany; --any-word "
             "lets it through"},
            {device + " early:",
             "step 'early:': the library ignores it, it takes a ROOT behind the ':'; --any-word "
             "lets it through"},
            {device + " media:foo",
             "step 'media:foo': the library ignores it, it takes a path that begins with /my_; "
             "--any-word lets it through"},
            {device + " --request x", "--request goes with the step cota-service:check_mount"},
            {device + " --set a..b=1",
             "--set 'a..b=1': no phone has the property 'a..b': illegal name"},
            {device + " --edit odm:a=1",
             "--edit 'odm:a=1': expected PATH:NAME=VALUE with an absolute PATH"},
            {device + " media", "step 'media': 'media' takes an argument behind a ':'"},
            {device + " --set novalue", "--set 'novalue': expected NAME=VALUE"},
            {device + " --set =1", "--set '=1': expected NAME=VALUE"},
            {device + " --props " + Path("/none"), Path("/none") + ": No such file or directory"},
            {device + " --props " + file, file + ":2: expected name=value"},
            {device + " --props " + open, open + ":2: the value's closing ] is missing"},
            {device + " --props " + import, import + ":1: imports are not followed here"},
            {device + " --quiet --json", "--json excludes --quiet"},
    };
    for (const auto& known : cases) {
        const Output output = Run(known.arguments);
        EXPECT_EQ(output.status, 2) << known.arguments;
        EXPECT_EQ(output.out, "") << known.arguments;
        EXPECT_EQ(output.err, "extprop: " + known.error + "\n");
    }
    const Output help = Run("boot --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, HasSubstr("cota-service:COMMAND"));
}

}  // namespace
