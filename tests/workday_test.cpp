// The jobs of a work day: what is asked for and misspelt, what cannot be read or has no effect, and
// how people get from a value to its lines and back.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tool.h"

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;

class WorkdayTest : public ToolTest {
  protected:
    // Makes a device with two carriers, three regions and a market name.
    std::string MakeDevice() const {
        const std::string carrier = "/d/mnt/vendor/my_carrier/";
        Write("/d/odm/build.prop", "ro.a=odm\nro.acme.apn=none\n");
        Write("/d/mnt/vendor/my_region/build.prop", "ro.tesvo.pipeline.region=EU\n");
        for (const std::string region : {"EU", "IN", "BR"}) {
            Write("/d/mnt/vendor/my_product/cust/" + region + "/build.prop",
                  "ro.acme.region=" + region + "\n");
        }
        for (const std::string key : {"alpha", "beta"}) {
            Write(carrier + "properties/" + key + "/SimSwitchFirstTime/c.prop",
                  "ro.acme.apn=internet." + key + "\n");
        }
        return Path("/d");
    }

    // Runs the tool as somebody who is not root.
    static Output RunAsUser(const std::string& arguments) {
        const std::string who = geteuid() == 0 ? "setpriv --reuid 65534 --clear-groups " : "";
        return Run("--version >/dev/null; " + who + EXTPROP + " " + arguments);
    }
};

TEST_F(WorkdayTest, WhatCannotBeReadIsNoted) {
    if (RunAsUser("--version").status != 0) GTEST_SKIP() << "a user cannot reach the tool here";
    const std::string device = MakeDevice();
    const std::string expectations =
            Write("/e.yaml", "expectations: [{properties: {ro.a: odm}}]\n");
    for (const char* place : {"/mnt/vendor/my_carrier", "/mnt/vendor/my_carrier/properties/beta"}) {
        ASSERT_EQ(chmod((device + place).c_str(), 0), 0);
        ASSERT_EQ(geteuid() == 0 ? chown((device + place).c_str(), 65534, 65534) : 0, 0);
        const std::string note = std::string(place) + " cannot be read by this user";
        // Nothing but a variant looks into a carrier's directory.
        const bool is_looked_at = std::string(place).find("beta") == std::string::npos;
        for (const std::string command : {"boot", "diff", "matrix", "explain ro.a"}) {
            const size_t space = command.find(' ');
            const Output output = RunAsUser(command.substr(0, space) + " " + device +
                                            (space == std::string::npos ? "" : " ro.a"));
            EXPECT_EQ(output.status, 0) << command << output.err;
            if (is_looked_at || (command != "boot" && command != "diff")) {
                EXPECT_THAT(output.err, HasSubstr(note)) << command;
            }
        }
        const Output checked = RunAsUser("check " + device + " " + expectations);
        EXPECT_EQ(checked.status, 2);
        EXPECT_THAT(checked.err, HasSubstr(note));
        EXPECT_EQ(checked.out, "");
        const Output linted = RunAsUser("lint " + device);
        EXPECT_EQ(linted.status, 1);
        EXPECT_THAT(linted.out, HasSubstr("[unreadable]"));
        chmod((device + place).c_str(), 0755);
    }
    EXPECT_EQ(RunAsUser("check " + device + " " + expectations).status, 0);
}

TEST_F(WorkdayTest, WhatHasNoEffectIsNoted) {
    const std::string device = MakeDevice();
    Write("/empty/x", "");
    Write("/outer/device/odm/build.prop", "");
    Write("/dump", "[ro.a]: [dumped]\n[ro.b]: [1]\n");
    const struct {
        std::string words;  // after the device
        std::string note;   // on standard error; none if empty
    } cases[] = {
            {"--edit /odm/biuld.prop:ro.x=1",
             "changes nothing in this boot: the device has no such file; did you mean "
             "'/odm/build.prop'?"},
            {"--edit /odm/build.prop:ro.a=odm", "=odm changes nothing in this boot\n"},
            {"--edit /odm/build.prop:ro.a=2", ""},
            {"--delete /odm/build.prop:ro.nosuch",
             "note: --delete /odm/build.prop:ro.nosuch changes nothing in this boot\n"},
            {"--delete /odm/build.prop", ""},
            {"--brand Acme", "the library knows no brand 'Acme'; there are quba, "},
            {"--brand qubba", "did you mean 'quba'?"},
            {"--region INN", "the device has no region 'INN'; did you mean 'IN'?"},
            {"--region IN", ""},
            {"--region EU", "--region EU changes nothing in this boot\n"},
            {"--sim-first bets", "no sim-first 'bets'; did you mean 'beta'?"},
            {"--sim-first beta", ""},
            {"--set ro.a=mine", "1 of 1 given value was overridden: ro.a\n"},
            {"--props " + Path("/dump"), "1 of 2 given values were overridden: ro.a\n"},
            {"--set ro.b=mine", ""},
            {"reboot", "no step but reboot is given"},
    };
    for (const auto& [words, note] : cases) {
        // The others report the same.
        const bool is_first = &note == &cases[0].note;
        for (const char* command : {"boot -q ", "explain --value odm ", "matrix ", "diff "}) {
            if (!is_first && command != std::string("boot -q ")) continue;
            const Output output = Run(command + device + " " + words);
            EXPECT_EQ(output.status, 0) << output.err;
            if (note.empty()) {
                EXPECT_EQ(output.err, "") << command << words;
            } else {
                EXPECT_THAT(output.err, HasSubstr(note)) << command << words;
            }
        }
    }
    EXPECT_THAT(Run("boot " + Path("/empty")).err, HasSubstr("so it is no device's root"));
    EXPECT_THAT(Run("diff " + Path("/outer")).err, HasSubstr("did you mean 'device' in it?"));
    const Output same = Run("diff " + device + " --props " + Path("/dump"));
    EXPECT_EQ(same.status, 0);
    EXPECT_EQ(same.out, "no difference\n");
}

TEST_F(WorkdayTest, ExpectationsAreAboutTheDevice) {
    const std::string device = MakeDevice();
    const std::string unset = Write("/unset.yaml",
                                    "expectations:\n- properties:\n    ro.acme.apm: {set: false}\n "
                                    "   ro.b: {set: false}\n");
    const Output noted = Run("check " + device + " " + unset + " --set persist.c=1");
    EXPECT_EQ(noted.status, 0);
    EXPECT_THAT(noted.err,
                AllOf(HasSubstr(unset + ":3: ro.acme.apm is expected to be unset, and no file, "
                                        "option or boot has such a property; did you mean "
                                        "'ro.acme.apn'?"),
                      HasSubstr(unset + ":4: ro.b is expected")));
    // A carrier's file has it, in other boots.
    const std::string other = Write(
            "/other.yaml", "expectations: [{variants: {}, properties: {ro.x: {set: false}}}]\n");
    Write("/d/mnt/vendor/my_carrier/properties/beta/SimSwitchFirstTime/x.prop", "ro.x=1\n");
    EXPECT_EQ(Run("check " + device + " " + other).err, "");

    const std::string from = Write("/from.yaml",
                                   "expectations:\n- variants: {}\n  properties:\n"
                                   "    ro.a: {from: '/odm/biuld.prop:1'}\n");
    const Output lacking = Run("check " + device + " " + from);
    EXPECT_EQ(lacking.status, 2);
    EXPECT_EQ(lacking.err, "extprop: " + from +
                                   ":4: ro.a is expected from /odm/biuld.prop, which the device "
                                   "does not have; did you mean '/odm/build.prop'?\n");
    const std::string tab = Write("/tab.yaml", "expectations:\n\t- properties: {ro.a: odm}\n");
    EXPECT_THAT(Run("check " + device + " " + tab).err, HasSubstr(":2:1: a tab"));
}

TEST_F(WorkdayTest, RecordReplacesWhatWasRecorded) {
    const std::string device = MakeDevice();
    const std::string written = Write("/e.yaml", "# mine\nexpectations: []\n");
    const std::string record = "check --record " + device + " ";
    const Output refused = Run(record + written);
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err, HasSubstr("but written by hand; --force replaces it"));
    std::string content;
    EXPECT_TRUE(android::base::ReadFileToString(written, &content));
    EXPECT_EQ(content, "# mine\nexpectations: []\n");
    EXPECT_EQ(Run(record + "--force " + written).status, 0);
    EXPECT_EQ(Run(record + written).status, 0);
    EXPECT_EQ(Run(record + Path("/new.yaml")).status, 0);
}

TEST_F(WorkdayTest, MatrixAnswersWhoHasAValue) {
    const std::string device = MakeDevice();
    const struct {
        const char* words;
        std::string out;
        std::string err;
    } cases[] = {
            {"internet.beta", "\n6 variants\n",
             "no variant has a property 'internet.beta'; this is a value, of ro.acme.apn; look for "
             "values with --value\n"},
            {"nosuch", "\n6 variants\n",
             "no variant has a property 'nosuch', and there is no such file or directory\n"},
            {"ro.acme.apm", "\n6 variants\n",
             "no variant has a property 'ro.acme.apm'; did you mean 'ro.acme.apn'?\n"},
            {"ro.acme.apn=internet.beta",
             "ro.acme.apn\n  internet.beta  sim-first=beta\n    persist "
             "/mnt/vendor/my_carrier/properties/beta/SimSwitchFirstTime/c.prop:1\n\n6 variants\n",
             ""},
            {"ro.acme.apn=internet", "\n6 variants\n",
             "no variant has the value 'internet' of ro.acme.apn; there are internet.alpha, "
             "internet.beta, none\n"},
    };
    for (const auto& [words, out, err] : cases) {
        const Output output = Run("matrix " + device + " " + words);
        EXPECT_EQ(output.out, out) << words;
        EXPECT_EQ(output.err, err.empty() ? "" : "extprop: " + err) << words;
        EXPECT_EQ(output.status, err.empty() ? 0 : 2) << words;
    }
    const Output any = Run("matrix " + device + " --value internet.beta");
    EXPECT_EQ(any.out, cases[3].out) << any.err;
}

TEST_F(WorkdayTest, ExplainFindsTheLinesOfAValue) {
    const std::string device = MakeDevice();
    const Output found = Run("explain " + device + " --value internet.beta --value odm");
    EXPECT_EQ(found.status, 0);
    EXPECT_EQ(found.out,
              "ro.a=odm\n  * early /odm/build.prop:1  odm\n"
              "ro.acme.apn=none\n    /mnt/vendor/my_carrier/properties/beta/SimSwitchFirstTime/"
              "c.prop:1  internet.beta  [not loaded; it takes --sim-first beta]\n");
    const Output none = Run("explain " + device + " ro.a internet.beta ealry ro.accme.apn");
    EXPECT_EQ(none.status, 2);
    EXPECT_THAT(none.err, AllOf(HasSubstr("'internet.beta'; this is a value, of ro.acme.apn"),
                                HasSubstr("'ealry'; did you mean 'early'?"),
                                HasSubstr("'ro.accme.apn'; did you mean 'ro.acme.apn'?")));
}

TEST_F(WorkdayTest, ManyLinesAreToldInFew) {
    const std::string device = MakeDevice();
    std::string imports;
    for (int i = 10; i < 50; ++i) {
        Write("/d/mnt/vendor/my_carrier/properties/op" + std::to_string(i) +
                      "/SimSwitchFirstTime/c.prop",
              "ro.acme.apn=" + std::to_string(i) + "\n");
    }
    for (int i = 1; i < 6; ++i) imports += "ro.acme.apn=" + std::to_string(i) + "\n";
    Write("/d/odm/build.prop", imports);
    const std::string all = Run("explain " + device + " ro.acme.apn").out;
    EXPECT_EQ(all,
              "ro.acme.apn=5\n"
              "    earlier to later:\n"
              "    early /odm/build.prop:1  1  [overridden]\n"
              "    early /odm/build.prop:2  2  [overridden]\n"
              "    early /odm/build.prop:3  3  [overridden]\n"
              "    early /odm/build.prop:4  4  [overridden]\n"
              "  * early /odm/build.prop:5  5\n"
              "    42 more, not loaded: /mnt/vendor/my_carrier/properties/KEY/"
              "SimSwitchFirstTime/c.prop:1, for KEY = alpha, beta, op10 ... op49; see extprop "
              "matrix DEVICE ro.acme.apn\n");
    const std::string verbose = Run("explain --verbose " + device + " ro.acme.apn").out;
    EXPECT_EQ(std::count(verbose.begin(), verbose.end(), '\n'), 49);
}

// The property is as before where nothing on the phone keeps it over a reboot.
TEST_F(WorkdayTest, OthersActBetweenSteps) {
    const std::string device = MakeDevice();
    const std::string first = "/data/system/customize/sim_switch/sim_switch_first_file";
    const struct {
        std::string steps;
        const char* property;
        const char* value;
    } cases[] = {
            {"early persist set:sys.sim.switch.first=beta sim", "ro.acme.apn", "internet.beta"},
            {"early persist set:sys.sim.switch.first=beta reboot early persist", "ro.acme.apn",
             "none"},
            {"early persist set:persist.x=1 reboot early", "persist.x", "1"},
            {"set:persist.x=2 early --set persist.x=1", "persist.x", "1"},
            {"early set:persist.x=2 persist --set persist.x=1", "persist.x", "2"},
            {"early persist write:" + first + "=beta reboot early persist", "ro.acme.apn",
             "internet.beta"},
            {"write:/odm/build.prop=ro.a=b=c early", "ro.a", "b=c"},
            {"early persist set:sys.sim.switch.first=beta sim --sim-first alpha", "ro.acme.apn",
             "internet.beta"},
    };
    for (const auto& [steps, property, value] : cases) {
        const Output output = Run("boot --json " + device + " " + steps);
        EXPECT_EQ(output.status, 0) << steps << output.err;
        if (output.status != 0) continue;
        EXPECT_EQ(json::parse(output.out)["properties"].value(property, ""), value) << steps;
    }
    for (const char* wrong : {"set:x", "set:=1", "set:a..b=1", "write:odm=1", "write:/odm"}) {
        EXPECT_EQ(Run("boot " + device + " " + wrong).status, 2) << wrong;
    }
    const Output unwritten = Run("boot " + device + " early write:/odm=1");
    EXPECT_EQ(unwritten.status, 2);
    EXPECT_THAT(unwritten.err, HasSubstr("/odm cannot be written"));
}

TEST_F(WorkdayTest, DiffShowsWhatALineDoes) {
    const std::string device = MakeDevice();
    EXPECT_EQ(Run("diff " + device + " --b --delete /odm/build.prop:ro.a").out,
              "- ro.a=odm  (early /odm/build.prop:1)\n");
    EXPECT_EQ(Run("diff " + device + " --b --delete /odm/build.prop").out,
              "- ro.a=odm  (early /odm/build.prop:1)\n"
              "- ro.acme.apn=none  (early /odm/build.prop:2)\n");
    EXPECT_EQ(Run("boot " + device + " --delete odm").status, 2);
    EXPECT_EQ(Run("boot " + device + " --delete /odm").status, 2);
}

TEST_F(WorkdayTest, ACircleOfImportsIsNamed) {
    Write("/odm/build.prop", "ro.a=1\nimport /odm/b.prop\nro.b=1\n");
    Write("/odm/b.prop", "import /odm/c.prop\n");
    Write("/odm/c.prop", "ro.c=1\nimport /odm/b.prop\n");
    const std::string said =
            "extprop: the library crashed with SIGSEGV in step early: the imports /odm/b.prop:1 -> "
            "/odm/c.prop:2 form a cycle\n";
    for (const char* command : {"boot ", "boot -q ", "boot --json "}) {
        const Output output = Run(command + Path(""));
        EXPECT_EQ(output.status, 3);
        EXPECT_EQ(output.err, said);
    }
    const Output explained = Run("explain " + Path("") + " 'ro.*'");
    EXPECT_EQ(explained.err, said);
    EXPECT_EQ(explained.out,
              "ro.a is not set\n    early /odm/build.prop:1  1  [not handed on: the library did "
              "not survive the step]\n"
              "ro.b is not set\n    /odm/build.prop:3  1  [not loaded: the library did not survive "
              "the boot]\n"
              "ro.c is not set\n    early /odm/c.prop:1 (imported by /odm/b.prop:1)  1  [not "
              "handed on: the library did not survive the step]\n");
}

// An operation names what it made its value of, or what it read in vain.
TEST_F(WorkdayTest, OperationsNameWhatTheyRead) {
    const std::string market = "explain " + Sample("market-name") + " ro.vendor.tesvo.market.name ";
    EXPECT_THAT(Run(market).out, HasSubstr(" from /my_product/cust/EU/etc/devicename.cfg:2  "));
    EXPECT_THAT(Run(market + "--edit /my_product/cust/EU/etc/devicename.cfg:ROM=512").out,
                AllOf(HasSubstr("updateMarketName derived nothing from "),
                      HasSubstr("/sys/block/sda/size=500118192, ROM=512 (/my_product/cust/EU/etc/"
                                "devicename.cfg:1)")));
    EXPECT_THAT(Run("explain " + Sample("limited-edition") + " '*version*' duskrider").out,
                HasSubstr(" from ro.vendor.tesvo.version_suffix and ro.build.display.id  "
                          "SMP1DR_14.2_B.07"));
}

// As the phone shows them; a directory of its own stays what it is.
TEST_F(WorkdayTest, PartitionsAreSeenAtBothPlaces) {
    Write("/odm/build.prop", "import /my_region/etc/a.prop\nimport /my_stock/a.prop\n");
    Write("/mnt/vendor/my_region/etc/a.prop", "ro.a=1\n");
    Write("/mnt/vendor/my_stock/a.prop", "ro.b=vendor\n");
    Write("/my_stock/a.prop", "ro.b=own\n");
    const Output output = Run("explain " + Path("") + " ro.a ro.b early");
    EXPECT_THAT(output.out, AllOf(HasSubstr("ro.a=1\n"), HasSubstr("ro.b=own\n")));
    EXPECT_THAT(Run("lint " + Path("")).out, testing::Not(HasSubstr("missing-import")));
}

TEST_F(WorkdayTest, SamplesInOrderHaveNoFindings) {
    for (const auto& sample : std::filesystem::directory_iterator(Sample(""))) {
        const std::string path = sample.path();
        // These two are there for what lint reports of them.
        if (path == Sample("faulty") || path == Sample("carrier-package")) continue;
        EXPECT_EQ(Run("lint " + path).out, "") << path;
    }
}

TEST_F(WorkdayTest, WordsAreGuessed) {
    const std::string device = MakeDevice();
    const struct {
        std::string words;
        const char* said;
    } cases[] = {
            {"boot early " + device, "'early' is a step; DEVICE comes before the steps"},
            {"boot " + device + " earyl", "unknown step 'earyl'; did you mean 'early'?"},
            {"boot " + device + " --regoin IN", "did you mean '--region'?"},
            {"matrix " + device + " --markdwon=x", "did you mean '--markdown'?"},
    };
    for (const auto& [words, said] : cases) {
        const Output output = Run(words);
        EXPECT_EQ(output.status, 2) << words;
        EXPECT_THAT(output.err, HasSubstr(said)) << words;
    }
}

}  // namespace
