// The tool as users and scripts run it: its arguments, output and exit status.

#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tool.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

class ExtpropTest : public ToolTest {};

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

    // A page that cannot be written completely is removed.
    const std::string small = "trap '' XFSZ; ulimit -f 16; " EXTPROP " boot -q " +
                              Sample("overlay") + " early --html " + Path("/full.html");
    EXPECT_NE(system((small + " >/dev/null 2>&1").c_str()), 0);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Path("")), {}), 1);

    const Output nowhere = Run("boot " + Sample("overlay") + " early --html " + Path("/none/x"));
    EXPECT_EQ(nowhere.status, 2);
    EXPECT_EQ(nowhere.out, "");
    EXPECT_EQ(nowhere.err, "extprop: " + Path("/none/x") + ": No such file or directory\n");
}

TEST_F(ExtpropTest, PageGoesThroughWhateverIsNoPlainFile) {
    const std::string fifo = Path("/fifo"), node = Path("/null");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const auto boot = [](const std::string& page) {
        return Run("boot -q " + Sample("market-name") + " early --html " + page).status;
    };
    EXPECT_EQ(system(("timeout 20 cat " + fifo + " >" + Path("/read") + " &").c_str()), 0);
    EXPECT_EQ(boot(fifo), 0);
    EXPECT_TRUE(std::filesystem::is_fifo(fifo));
    // The reader may not have reached the end yet.
    EXPECT_EQ(system(("for i in $(seq 500); do grep -q '^</html>' " + Path("/read") +
                      " && exit 0; sleep 0.01; done; exit 1")
                             .c_str()),
              0);
    for (const char* own : {"/dev/stdout", "/dev/fd/1", "/dev/stderr"}) {
        const Output output = Run("boot -q " + Sample("market-name") + " early --html " + own);
        EXPECT_EQ(output.status, 0);
        EXPECT_THAT(output.out + output.err, HasSubstr("</html>\n"));
    }
    if (mknod(node.c_str(), S_IFCHR | 0600, makedev(1, 3)) != 0) return;
    EXPECT_EQ(boot(node), 0);
    EXPECT_TRUE(std::filesystem::is_character_file(node));
}

TEST_F(ExtpropTest, AResultThatCannotBeWrittenIsAnError) {
    const std::string device = Sample("overlay") + " early ";
    for (const std::string& arguments :
         {"boot " + device, "boot --json " + device, "boot -q " + device, "explain --all " + device,
          "explain --all --json " + device, "diff " + device + "--a --set ro.x=1",
          "diff --json " + device, "lint " + Sample("carrier-package"),
          "lint --json " + Sample("overlay"), std::string("--version"),
          std::string("lint --help")}) {
        for (const char* nowhere : {">/dev/full", ">&-"}) {
            const Output output = Run(arguments, nowhere);
            EXPECT_EQ(output.status, 2) << arguments << nowhere;
            EXPECT_THAT(output.err, HasSubstr("extprop: the result cannot be written: "));
        }
    }
}

TEST_F(ExtpropTest, ControlCharactersReachNoTerminal) {
    const std::string value = "a\x1b[2Jb\rc\x7f\xc2\x9b", shown = "a\\x1b[2Jb\\x0dc\\x7f\\u{9b}";
    Write("/d/odm/build.prop", "ro.a=" + value + "\nimport /" + value + "\n");
    const std::string device = Path("/d") + " early:/odm";
    for (const std::string& arguments :
         {"boot " + device, "boot --verbose " + device, "explain --all " + device,
          "diff " + Path("/d") + " --a early:/odm --b early:/none", "lint " + Path("/d")}) {
        const std::string out = Run(arguments).out;
        EXPECT_THAT(out, HasSubstr(shown)) << arguments;
        EXPECT_EQ(out.find_first_of("\x1b\r\x7f\x9b"), std::string::npos) << out;
    }
    EXPECT_EQ(Run("boot -q " + device).out, "[ro.a]: [" + value + "]\n");
    EXPECT_EQ(json::parse(Run("boot --json " + device).out)["properties"]["ro.a"], value);
    const std::string typed = Path("/typed");
    EXPECT_EQ(system(("script -qec '" EXTPROP " boot -q " + device + "' " + typed + " >/dev/null")
                             .c_str()),
              0);
    std::string content;
    ASSERT_TRUE(android::base::ReadFileToString(typed, &content));
    EXPECT_THAT(content, HasSubstr("[ro.a]: [" + shown + "]"));
}

TEST_F(ExtpropTest, LintEndsWithTheErrorsThatItFinds) {
    const Output faulty = Run("lint " + Sample("faulty") + " --sarif " + Path("/sarif"));
    EXPECT_EQ(faulty.status, 1);
    EXPECT_THAT(faulty.out, HasSubstr(Sample("faulty") +
                                      "/odm/properties/west/regionSwitch/radio.prop:2: error: "));
    EXPECT_EQ(faulty.err, "");
    std::string sarif;
    ASSERT_TRUE(android::base::ReadFileToString(Path("/sarif"), &sarif));
    EXPECT_EQ(json::parse(sarif)["runs"][0]["results"].size(),
              static_cast<size_t>(std::count(faulty.out.begin(), faulty.out.end(), '\n')));
    EXPECT_EQ(Run("lint " + Sample("faulty") + " --sarif " + Path("/none/x")).status, 2);
    const Output warned = Run("lint --json " + Sample("carrier-package"));
    EXPECT_EQ(warned.status, 0);
    EXPECT_EQ(json::parse(warned.out)["findings"][0]["severity"], "warning");
    EXPECT_EQ(Run("lint " + Path("/none")).err,
              "extprop: " + Path("/none") + ": No such file or directory\n");
}

TEST_F(ExtpropTest, FilesInImagesAreThoseOfTheSlotAndSayWhereTheyLie) {
    for (const std::string slot : {"a", "b"}) {
        Write("/files/build.prop", "ro.slot=" + slot + "\nro.slot.bad\n");
        const std::string image = Path("/d/my_region_" + slot + ".img");
        Write("/d/my_region_" + slot + ".img", "");
        ASSERT_EQ(system(("PATH=$PATH:/usr/sbin mkfs.ext4 -q -F -d " + Path("/files") + " " +
                          image + " 2M")
                                 .c_str()),
                  0);
    }
    const std::string device = " " + Path("/d") + " ";
    const std::string shown = "/mnt/vendor/my_region/build.prop";
    const json place = {{"file", Path("/d/my_region_b.img")},
                        {"name", "my_region_b.img"},
                        {"path", "/build.prop"}};

    EXPECT_EQ(Run("boot -q" + device + "early").out, "[ro.slot]: [a]\n");
    EXPECT_EQ(Run("explain --slot b" + device + "ro.slot early").out,
              "ro.slot=b\n  * early " + shown + ":1 (/build.prop in my_region_b.img)  b\n");
    EXPECT_EQ(Run("explain" + device + "ro.slot media:/my_x").out,
              "ro.slot is not set\n    " + shown +
                      ":1 (/build.prop in my_region_a.img)  a  [not loaded; it takes early]\n");
    const Output diff = Run("diff --json" + device + "early --a --slot a --b --slot b");
    EXPECT_EQ(json::parse(diff.out)["changed"][0]["b"]["origin"]["image"], place);

    const Output lint = Run("lint --slot b" + device);
    EXPECT_THAT(lint.out, HasSubstr(shown + ":2: error: "));
    EXPECT_THAT(lint.out, HasSubstr("(/build.prop in my_region_b.img) [no-equals]\n"));
    EXPECT_EQ(lint.err,
              "extprop: note: " + Path("/d/my_region_a.img") + ": of the other slot, not read\n");
    EXPECT_EQ(json::parse(Run("lint --json --slot b" + device).out)["findings"][0]["image"], place);
}

TEST_F(ExtpropTest, CrashesAndHangsAreReported) {
    const std::string file = Write("/odm/build.prop", "import /${none}\nimport /odm/other.prop\n");
    Write("/odm/other.prop", "import /odm/build.prop\n");
    const Output crashed = Run("boot -q " + Path("") + " early");
    EXPECT_EQ(crashed.status, 3);
    EXPECT_EQ(crashed.out, "");
    EXPECT_EQ(crashed.err,
              "extprop: the library crashed with SIGSEGV in step early: the imports "
              "/odm/build.prop:2 -> /odm/other.prop:1 form a cycle\n");
    // Whatever the caller has made of signals.
    const std::string heedless = "env --block-signal --ignore-signal=CHLD " EXTPROP " boot -q " +
                                 Path("") + " early 2>" + Path("/heedless");
    EXPECT_EQ(WEXITSTATUS(system(heedless.c_str())), 3);
    std::string error;
    android::base::ReadFileToString(Path("/heedless"), &error);
    EXPECT_EQ(error, crashed.err);

    // The same message of hundreds of loads is printed once.
    const std::string said = Run("boot " + Path("") + " early").out;
    EXPECT_THAT(said, HasSubstr(" times)\n"));
    EXPECT_LT(std::count(said.begin(), said.end(), '\n'), 12) << said;
    const std::string all = Run("boot --verbose " + Path("") + " early").out;
    EXPECT_THAT(all, Not(HasSubstr(" times)\n")));
    EXPECT_GT(std::count(all.begin(), all.end(), '\n'), 100);

    std::filesystem::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), 0644), 0);
    const Output hung = Run("boot --json --timeout 1 " + Path("") + " early persist");
    EXPECT_EQ(hung.status, 3);
    const json report = json::parse(hung.out);
    EXPECT_EQ(report["failure"], json({{"step", "early"},
                                       {"timed_out", true},
                                       {"signal", nullptr},
                                       {"limit", nullptr},
                                       {"last_file", "/odm/build.prop"},
                                       {"cycle", json::array()}}));
}

// At any moment of a command, and for a signal to one process or to all of a terminal's.
TEST_F(ExtpropTest, AnEndedCommandLeavesNothing) {
    const std::string temporary = Path("/temporary");
    std::filesystem::create_directory(temporary);
    std::string steps;
    for (int i = 0; i < 50; ++i) steps += " early reboot";
    const std::string command = "TMPDIR=" + temporary + " exec " EXTPROP " boot -q " +
                                Sample("boot-logo") + steps +
                                " sim:triggerLogoCopyFromCompanyBoot >/dev/null 2>&1";
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // processes that are left become this process's children
    for (const int signal : {SIGINT, SIGTERM, SIGKILL}) {
        for (int i = 0; i < 24; ++i) {
            const pid_t pid = fork();
            if (pid == 0) {
                setpgid(0, 0);
                execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
                _exit(EXIT_FAILURE);
            }
            setpgid(pid, pid);
            usleep(3'000 * i);
            kill(i % 2 == 0 ? pid : -pid, signal);
            int waited = 0;
            for (int t = 0; t < 1000 && (waited = waitpid(-1, nullptr, WNOHANG)) != -1; ++t) {
                if (waited == 0) usleep(10'000);
            }
            EXPECT_EQ(waited, -1) << "a process is left " << i;
        }
        EXPECT_TRUE(std::filesystem::is_empty(temporary)) << strsignal(signal);
        std::filesystem::remove_all(temporary);
        std::filesystem::create_directory(temporary);
    }
}

TEST_F(ExtpropTest, PropertiesComeFromFiles) {
    const std::string listed = Write("/listed", "[ro.a]: [1]\n[b]: [1]\n");
    const std::string plain = Write("/plain", "# comment\n ro.a = 2 \n\nb==\n");
    const Output output = Run("boot -q " + Sample("overlay") +
                              " early:/missing --set b=3 --props " + listed + " --props " + plain);
    EXPECT_EQ(output.out, "[b]: [3]\n[ro.a]: [2]\n");
    // Both boots get what can be read once.
    for (const char* name : {"-", "/dev/stdin"}) {
        const Output same = Run("diff " + Sample("overlay") + " --props " + name, "<" + plain);
        EXPECT_EQ(same.out, "no difference\n") << same.err;
    }
    EXPECT_EQ(Run("compare " + Sample("overlay") + " - b --props -", "<" + plain).status, 0);
}

TEST_F(ExtpropTest, BadInputIsOneLineAndNothingElse) {
    const std::string file = Write("/file", "a=1\nno equals\n");
    const std::string open = Write("/open", "a=1\n[b]: [open\n");
    const std::string device = "boot " + Sample("overlay");
    const struct {
        std::string arguments;
        std::string error;
    } cases[] = {
            {"", "COMMAND is required; see extprop --help"},
            {"boto x", "unknown command 'boto'; did you mean 'boot'?"},
            {"boot", "DEVICE is required; see extprop boot --help"},
            {"boot ''", "DEVICE is empty; see extprop boot --help"},
            {"matrix " + Sample("overlay") + " ''", "DEVICE is empty; see extprop matrix --help"},
            {device + " --html ''", "--html is empty; see extprop boot --help"},
            {device + " --html= --quiet", "--html is empty; see extprop boot --help"},
            {device + " --region= early", "--region is empty; see extprop boot --help"},
            {device + " --props ''", "the name of a file is empty"},
            {"boot " + Path("/none"), Path("/none") + ": No such file or directory"},
            {"boot " + file, file + ": neither an image nor a super partition, an update's payload "
                                    "or an archive of a known format"},
            {device + " earl", "unknown step 'earl'; did you mean 'early'?"},
            {"diff early", "DEVICE is required; see extprop diff --help"},
            {device + " persist:x", "step 'persist:x': 'persist' takes no argument"},
            {device + " sim:simSwitch",
             "step 'sim:simSwitch': the library ignores it; it takes one of simSwitchCurrent "
             "simSwitchFirst switchCarrierChannel regionSwitch updateDataCommonProp "
             "emptyAppchannelProp triggerLogoCopyFromCompanyBoot triggerLogoCopyFromCompany; "
             "--any-word "
             "passes it on"},
            {device + " early:",
             "step 'early:': the library ignores it; it takes a ROOT after ':'; --any-word "
             "passes it on"},
            {device + " media:foo",
             "step 'media:foo': the library ignores it; it takes a path that begins with /my_; "
             "--any-word passes it on"},
            {device + " --request x", "--request goes with the step cota-service:check_mount"},
            {device + " --set a..b=1",
             "--set 'a..b=1': no phone has the property 'a..b': illegal name"},
            {device + " sim:triggerLogoCopyTypo",
             "step 'sim:triggerLogoCopyTypo': the library ignores it; it takes one of "
             "simSwitchCurrent simSwitchFirst switchCarrierChannel regionSwitch "
             "updateDataCommonProp emptyAppchannelProp triggerLogoCopyFromCompanyBoot "
             "triggerLogoCopyFromCompany; --any-word passes it on"},
            {device + " --edit /f:=x",
             "--edit '/f:=x': expected PATH:NAME=VALUE with an absolute PATH"},
            {device + " --edit odm:a=1",
             "--edit 'odm:a=1': expected PATH:NAME=VALUE with an absolute PATH"},
            {device + " media", "step 'media': 'media' takes an argument after ':'"},
            {device + " --set novalue", "--set 'novalue': expected NAME=VALUE"},
            {device + " --set", "--set: expected NAME=VALUE"},
            {device + " --html a --html b", "--html is given more than once"},
            {device + " --set =1", "--set '=1': expected NAME=VALUE"},
            {device + " --props " + Path("/none"), Path("/none") + ": No such file or directory"},
            {device + " --props " + open,
             open + ":2: truncated or damaged: the value's closing ] is missing"},
            {device + " --slot c", "--slot: expected a or b, not 'c'"},
            {device + " --quiet --json", "--json excludes --quiet"},
    };
    for (const auto& known : cases) {
        const Output output = Run(known.arguments);
        EXPECT_EQ(output.status, 2) << known.arguments;
        EXPECT_EQ(output.out, "") << known.arguments;
        EXPECT_EQ(output.err, "extprop: " + known.error + "\n");
    }
    for (const char* ignored : {"sim:Bogus", "sim:", "early:", "media:foo", "early --request x"}) {
        EXPECT_EQ(Run(device + " " + ignored).status, 2) << ignored;
        EXPECT_EQ(Run(device + " --any-word " + ignored).status, 0) << ignored;
    }
    const Output help = Run("boot --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, HasSubstr("cota-service:COMMAND"));
}

}  // namespace
