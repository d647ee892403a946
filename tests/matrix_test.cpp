// The command matrix: its results are those of the variants' own boots, and what is made of them.

#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <numeric>
#include <random>

#include <android-base/strings.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "random_device.h"
#include "tool.h"

namespace {

using nlohmann::json;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

using Words = std::vector<std::string>;

std::string Shell(const Words& words) {
    std::string text;
    for (const std::string& word : words) {
        text += " '" + android::base::StringReplace(word, "'", "'\\''", true) + "'";
    }
    return text;
}

std::string Shell(const json& words) {
    return Shell(words.get<Words>());
}

// Returns the seeds of random devices: a new one, or more by hand, or from a seed that failed.
std::vector<uint64_t> Seeds() {
    const auto given = [](const char* variable, uint64_t otherwise) {
        const char* number = getenv(variable);
        return number == nullptr ? otherwise : strtoull(number, nullptr, 10);
    };
    std::vector<uint64_t> seeds(given("EXTPROP_TEST_DEVICES", 1));
    std::iota(seeds.begin(), seeds.end(),
              given("EXTPROP_TEST_SEED", std::random_device()() % 1000000));
    return seeds;
}

class MatrixTest : public ToolTest {
  protected:
    // The lines of a run: those of variants, by the variant's text, and the summary.
    struct Lines {
        std::map<std::string, json> variants;
        json summary;
    };

    static Lines LinesOf(const Output& output) {
        Lines lines;
        for (const std::string& text : android::base::Split(output.out, "\n")) {
            if (text.empty()) continue;
            json line = json::parse(text);
            if (line.contains("summary")) {
                lines.summary = line.at("summary");
            } else {
                EXPECT_TRUE(lines.variants.emplace(line.at("variant").dump(), line).second);
            }
        }
        return lines;
    }

    // Makes the device's boots in the region JP crash.
    void BreakJapan(const std::string& name) const {
        const std::string file = "/mnt/vendor/my_product/cust/JP/build.prop";
        // A random device may have links and files on the way.
        std::filesystem::path directory = Path(name);
        for (const auto& part : std::filesystem::path(file).parent_path().relative_path()) {
            directory /= part;
            if (!is_directory(symlink_status(directory))) remove(directory);
        }
        remove_all(directory);
        Write(name + file, "import " + file + "\n");
    }

    // Makes an image for five regions and twenty carriers, one of which sets too little.
    std::string Carriers(const std::string& name) const {
        const std::string vendor = name + "/mnt/vendor/";
        for (const char* region : {"CN", "EU", "IN", "JP", "US"}) {
            Write(vendor + "my_product/cust/" + region + "/build.prop",
                  std::string("ro.test.locale=") + (*region == 'E' ? "en" : region) + "\n");
        }
        for (int carrier = 0; carrier < 20; ++carrier) {
            const std::string key = "c" + std::to_string(carrier);
            Write(vendor + "my_carrier/properties/" + key + "/SimSwitchFirstTime/a.prop",
                  "ro.test.apn=" + key + ".example\n" + (carrier == 7 ? "" : "ro.test.volte=1\n"));
        }
        Write(vendor + "my_region/build.prop", "ro.tesvo.pipeline.region=EU\n");
        // The device's own key file differs from every variant but one.
        Write(name + "/data/system/customize/sim_switch/sim_switch_first_file",
              "sys.sim.switch.first=c3\n");
        return Path(name);
    }
};

TEST_F(MatrixTest, IsOneBootForEachVariant) {
    for (const uint64_t seed : Seeds()) {
        const std::string device = Path("/" + std::to_string(seed));
        const std::string words = " " + device + Shell(MakeRandomDevice(device, seed, false));
        BreakJapan("/" + std::to_string(seed));
        SCOPED_TRACE("MakeRandomDevice " + words);
        const Output matrix = Run("matrix --json" + words + " '*'");
        const Lines lines = LinesOf(matrix);
        ASSERT_EQ(lines.variants.size(), lines.summary.at("variants").size());
        bool fails = false;
        for (const json& entry : lines.summary.at("variants")) {
            SCOPED_TRACE(entry.dump());
            const json& line = lines.variants.at(entry.at("variant").dump());
            const json boot =
                    json::parse(Run("boot --json" + words + Shell(entry.at("words"))).out);
            EXPECT_EQ(json::diff(line.at("properties"), boot.at("properties")), json::array());
            EXPECT_EQ(line.at("failure"), boot.at("failure"));
            EXPECT_EQ(entry.at("failure"), boot.at("failure"));
            fails |= !boot.at("failure").is_null();
        }
        EXPECT_EQ(matrix.status, fails ? 3 : 0);
        // The summary must have the same, by property: each variant that did not fail has each
        // property once.
        for (const json& property : lines.summary.at("properties")) {
            std::map<size_t, json> values;
            for (const json& value : property.at("values")) {
                for (const size_t number : value.at("variants")) {
                    EXPECT_TRUE(values.emplace(number, value.at("value")).second);
                }
            }
            for (size_t i = 0; i < lines.variants.size(); ++i) {
                const json& variant = lines.summary.at("variants").at(i).at("variant");
                const json& line = lines.variants.at(variant.dump());
                EXPECT_EQ(values.count(i), line.at("failure").is_null() ? 1u : 0u) << variant;
                if (values.count(i) == 0) continue;
                EXPECT_EQ(
                        line.at("properties").value(property.at("name").get<std::string>(), json()),
                        values[i]);
            }
        }

        const std::string over = words + " --over region,sim-first --json";
        const Output whole = Run("matrix" + over);
        std::string merged;
        for (const char* part : {"3/3", "1/3", "2/3"}) {
            merged += " " + Write("/part" + std::string(1, *part),
                                  Run("matrix" + over + " --shard " + part).out);
        }
        const Output together = Run("matrix --json --merge" + merged);
        EXPECT_EQ(LinesOf(together).summary, LinesOf(whole).summary);
        EXPECT_EQ(together.status, whole.status);
        EXPECT_THAT(Run("matrix --merge" + merged + " " + Path("/part1")).err,
                    HasSubstr("part1:1: the variant"));
    }
}

TEST_F(MatrixTest, AnswersForWhom) {
    const std::string device = Carriers("/image");
    const Output list = Run("matrix --list " + device);
    EXPECT_THAT(list.out, HasSubstr("region       CN EU IN JP US\n"));
    EXPECT_THAT(list.out, HasSubstr("\n26 variants\n"));
    const std::pair<const char*, int> choices[] = {
            {"--over region,sim-first --except region=US", 105},
            {"--over region,sim-first --except region=as-is", 105},
            {"--except region=as-is", 5},
            {"--only region=as-is", 21},
            {"--only region=as-is,EU --except sim-first=c0", 21},
    };
    for (const auto& [words, variants] : choices) {
        EXPECT_THAT(Run("matrix --list " + device + " " + words).out,
                    HasSubstr("\n" + std::to_string(variants) + " variants\n"))
                << words;
    }

    Write("/image/odm/properties/c1/SimSwitchFirstTme/a.prop", "ro.test.lost=1\n");
    Write("/image/odm/properties/c1/SimSwitchFirstTime/a.prop", "ro.test.apn=c1.example\n");
    Write("/image/odm/properties/c1/loose.prop", "ro.test.lost=1\n");
    Write("/image/mnt/vendor/my_own/build.prop", "ro.test.own=1\n");
    const Output text = Run("matrix " + device + " early persist early:/mnt/vendor/my_own");
    EXPECT_THAT(text.out,
                AllOf(HasSubstr("No variant and no step reads:\n"
                                "  /odm/properties/c1/SimSwitchFirstTme\n"),
                      HasSubstr("\n  /odm/properties/c1/loose.prop\n"), Not(HasSubstr("my_own"))));
    std::filesystem::remove_all(device + "/mnt/vendor/my_own");
    std::filesystem::remove_all(device + "/odm");
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_THAT(text.out,
                HasSubstr("ro.test.volte\n"
                          "  (unset)  sim-first=c7\n"
                          "  1        all 25 other variants\n"
                          "    persist /mnt/vendor/my_carrier/properties/c3/SimSwitchFirstTime/"
                          "a.prop:2\n"));
    EXPECT_THAT(text.out, HasSubstr("ro.test.locale\n"
                                    "  CN  region=CN\n"
                                    "    early /mnt/vendor/my_product/cust/CN/build.prop:1\n"));
    EXPECT_THAT(Run("matrix " + device + " ro.test.locale --over region,sim-first").out,
                HasSubstr("  IN  region=IN (21 variants)\n"));
    EXPECT_THAT(Run("matrix " + device + " --only sim-first=c0,c7 ro.test.volte").out,
                HasSubstr("  1        sim-first=c0\n"));

    std::string parts;
    for (const std::string part : {"4", "2", "1", "3"}) {
        parts += " " +
                 Write("/part" + part, Run("matrix --json --shard " + part + "/4 " + device).out);
    }
    EXPECT_EQ(LinesOf(Run("matrix --json --merge" + parts)).summary,
              LinesOf(Run("matrix --json " + device)).summary);
    for (const std::string missing : {"1", "2", "3", "4"}) {
        const std::string rest =
                android::base::StringReplace(parts, Path("/part" + missing), "", false);
        EXPECT_THAT(Run("matrix --merge" + rest).err,
                    HasSubstr("the lines of --shard " + missing + "/4 are missing"));
    }
    const std::string whole = Run("matrix --jobs 1 --json " + device + " ro.test.apn").out;
    const size_t second = whole.find('\n') + 1, last = whole.find("{\"summary\"");
    const std::string summary = whole.substr(last);
    EXPECT_EQ(LinesOf(Run("matrix --json ro.test.apn --merge " +
                          Write("/turned", summary + whole.substr(0, last))))
                      .summary,
              LinesOf({0, summary, ""}).summary);
    const auto replaced = [&](const char* text, const char* by) {
        return android::base::StringReplace(whole, text, by, false);
    };
    const std::string place = ":" + std::to_string(std::count(whole.begin(), whole.end(), '\n')) +
                              ": not a line of extprop matrix --json: ";
    const std::pair<std::string, std::string> damaged[] = {
            {"", ": the summary is missing"},
            {whole.substr(0, last), ": the summary is missing"},
            {whole.substr(second), ": the summary lists the variant 'as it is', whose line"},
            {whole + summary, ": the summary lists the variant 'as it is', whose line"},
            {replaced("\"text\":", "\"txt\":"), place},
            {replaced("\"shard\":null", R"("shard":{"number":0,"count":0})"), place},
            {replaced("\"shard\":null", R"("shard":{"number":1e300,"count":1})"), place},
    };
    for (const auto& [content, error] : damaged) {
        const Output output = Run("matrix --merge " + Write("/damaged", content));
        EXPECT_EQ(output.status, 2) << error;
        EXPECT_THAT(output.err, HasSubstr("extprop: " + Path("/damaged") + error));
    }

    const std::string other = Carriers("/other");
    EXPECT_EQ(Run("matrix " + device + " " + other).status, 0);
    Write("/other/mnt/vendor/my_product/build.prop", "ro.test.new=1\n");
    Write("/other/mnt/vendor/my_product/cust/IN/build.prop", "ro.test.locale=hi\n");
    Write("/other/mnt/vendor/my_carrier/properties/c20/SimSwitchFirstTime/a.prop", "");
    const Output difference = Run("matrix --over region,sim-first " + device + " " + other);
    EXPECT_EQ(difference.status, 1);
    EXPECT_THAT(difference.out, HasSubstr("all 126 variants: ro.test.new (unset) -> 1\n"));
    EXPECT_THAT(difference.out,
                HasSubstr("21 variants: ro.test.locale IN -> hi  [region=IN (21 variants)]\n"));
    EXPECT_THAT(difference.out, HasSubstr("only " + other + " has sim-first=c20\n"));
}

TEST_F(MatrixTest, AVariantThatFailsIsNoneThatBooted) {
    const std::string device = Carriers("/image"), other = Carriers("/other");
    BreakJapan("/other");
    const Output text = Run("matrix " + other + " 'ro.test.*' --html " + Path("/page.html"));
    EXPECT_EQ(text.status, 3);
    // The page's data is the summary.
    std::string page;
    android::base::ReadFileToString(Path("/page.html"), &page);
    const size_t data = page.find('{', page.find("id=\"data\""));
    EXPECT_EQ(json::parse(page.substr(data, page.find("</script>", data) - data)),
              LinesOf(Run("matrix --json " + other + " 'ro.test.*'")).summary);
    EXPECT_THAT(text.out, AllOf(HasSubstr("ro.test.locale\n  CN  region=CN\n"),
                                HasSubstr("  en  all 22 other variants\n"),
                                HasSubstr(", of which the library did not survive 1:\nregion=JP"),
                                Not(HasSubstr("  JP  "))));
    // In either order of the two devices.
    for (const std::string& devices : {device + " " + other, other + " " + device}) {
        const Output difference = Run("matrix " + devices);
        EXPECT_EQ(difference.status, 3);
        EXPECT_THAT(difference.out,
                    testing::StartsWith("region=JP: the library crashed with SIGSEGV"));
    }
    std::filesystem::remove_all(device + "/mnt/vendor/my_product/cust/JP");
    const Output difference = Run("matrix " + device + " " + other);
    EXPECT_EQ(difference.status, 3);
    EXPECT_THAT(difference.out, AllOf(HasSubstr("only " + other + " has region=JP\n"),
                                      HasSubstr("\nregion=JP: the library crashed")));
}

TEST_F(MatrixTest, AKilledWorkerIsAnError) {
    const std::string device = Carriers("/image");
    const std::string hangs = device + "/mnt/vendor/my_product/cust/JP/build.prop";
    std::filesystem::remove(hangs);
    ASSERT_EQ(mkfifo(hangs.c_str(), 0644), 0);
    // When all other variants are done, the worker processes that are left boot the one that hangs.
    const std::string out = Path("/out");
    const std::string script =
            ": >" + out + "; " EXTPROP " matrix --jobs 2 --json --over region --timeout 60 " +
            device + " '*' >" + out + " & for i in $(seq 2000); do [ $(wc -l <" + out +
            ") -lt 4 ] || break; sleep 0.01; done; "
            "kill -KILL $(cat /proc/$!/task/$!/children); wait $!";
    const std::string err = Path("/err");
    const int status = system(("(" + script + ") 2>" + err).c_str());
    EXPECT_EQ(WEXITSTATUS(status), 2);
    std::string said;
    android::base::ReadFileToString(err, &said);
    EXPECT_THAT(said, HasSubstr("extprop: a worker process was killed\n"));
}

TEST_F(MatrixTest, SaysWhatWasNotReadOfEachDevice) {
    const std::string device = Carriers("/image"), other = Carriers("/other");
    const std::string note = "extprop: note: " + Write("/other/my_stock_b.img", "") +
                             ": of the other slot, not read\n";
    EXPECT_EQ(Run("matrix " + other).err, note);
    EXPECT_EQ(Run("matrix " + device + " " + other).err, note);
    EXPECT_EQ(Run("matrix " + other + " " + device).err, note);
}

TEST_F(MatrixTest, MakesKeysTrueThatTheBootDeletes) {
    const std::string device = Carriers("/image");
    Write("/image/odm/properties/shop/switchCarrierChannel/a.prop", "ro.test.channel=1\n");
    Write("/image/data/system/customize/data_common_prop_file.prop",
          "persist.sys.channel.info=other\n");
    const Output output = Run("matrix --json --only channel=shop " + device +
                              " --set persist.sys.911.shutdown=1");
    const json properties = LinesOf(output).variants.begin()->second.at("properties");
    EXPECT_EQ(properties.value("persist.sys.channel.info", ""), "shop") << output.out;
    EXPECT_EQ(properties.value("ro.test.channel", ""), "1");
}

TEST_F(MatrixTest, MakesKeysTrueThatAPartitionSays) {
    const std::string device = Carriers("/image");
    Write("/image/odm/etc/more.prop", "sys.sim.switch.first=c1\n");
    Write("/image/odm/build.prop", "import /odm/etc/more.prop\n");
    const Output output =
            Run("matrix --json --only sim-first=c2 " + device + " early sim:simSwitchFirst");
    const json properties = LinesOf(output).variants.begin()->second.at("properties");
    EXPECT_EQ(properties.value("ro.test.apn", ""), "c2.example") << output.out;
}

TEST_F(MatrixTest, TellsWhatIsWrongAndWhatFails) {
    const std::string device = Carriers("/image");
    const struct {
        const char* arguments;
        const char* error;
    } mistakes[] = {
            {"--only brnd=x", "unknown axis 'brnd'; the axes are brand, region"},
            {"--only region=XX", "the device has no region 'XX'"},
            {"--only region=EU --only sim-first=c0", "no variant is left to boot"},
            {"--shard 3/2", "--shard '3/2': expected I/N"},
            {"--shard -2/-1", "--shard '-2/-1': expected I/N"},
            {"--shard ' +1/+2'", "--shard ' +1/+2': expected I/N"},
            {"ro.nothing", "no variant has a property 'ro.nothing'"},
            {"/nowhere", "/nowhere: No such file or directory"},
    };
    for (const auto& mistake : mistakes) {
        const Output output = Run("matrix " + device + " " + mistake.arguments);
        EXPECT_EQ(output.status, 2) << mistake.arguments;
        EXPECT_THAT(output.err, HasSubstr(mistake.error)) << mistake.arguments;
    }

    BreakJapan("/image");
    const Output failing = Run("matrix --json " + device);
    EXPECT_EQ(failing.status, 3);
    const json line = LinesOf(failing).variants.at(R"({"region":"JP"})");
    EXPECT_EQ(line.at("failure").at("step"), "early");
    EXPECT_EQ(Run("check " + device + " --record " + Path("/record.yaml")).status, 3);
    EXPECT_FALSE(std::filesystem::exists(Path("/record.yaml")));
}

TEST_F(MatrixTest, ExpectationsHoldUntilAValueChanges) {
    for (const uint64_t seed : Seeds()) {
        const std::string device = Path("/" + std::to_string(seed));
        MakeRandomDevice(device, seed, false);
        SCOPED_TRACE("seed " + std::to_string(seed));
        const std::string check = "check " + device + " " + Path("/record.yaml");
        ASSERT_EQ(Run(check + " --record").status, 0);
        const Output same = Run(check);
        EXPECT_EQ(same.status, 0) << same.out << same.err;
        const Lines lines = LinesOf(Run("matrix --json " + device + " '*'"));
        std::mt19937_64 random(seed);
        const json& properties = lines.summary.at("properties");
        for (int i = 0; i < 4; ++i) {
            const json& property = properties.at(random() % properties.size());
            const json& values = property.at("values");
            const json& origin = values.at(random() % values.size()).at("origin");
            if (origin.is_null() || origin.at("kind") != "file") continue;
            const std::string file = origin.at(origin.at("source").is_null() ? "file" : "source");
            const std::string edit =
                    file + ":" + property.at("name").get<std::string>() + "=edited-here";
            const Output edited = Run(check + Shell(Words{"--edit", edit}));
            const Lines now =
                    LinesOf(Run("matrix --json " + device + " '*'" + Shell(Words{"--edit", edit})));
            bool differs = false;
            for (const auto& [variant, line] : now.variants) {
                auto known = lines.variants.find(variant);
                differs |= known == lines.variants.end() ||
                           known->second.at("properties") != line.at("properties");
            }
            EXPECT_EQ(edited.status, differs ? 1 : 0) << edit << "\n" << edited.out;
        }
    }
}

TEST_F(MatrixTest, ExpectationsKeepEveryValue) {
    const std::string values[] = {"",
                                  " both ",
                                  "~",
                                  "null",
                                  "true",
                                  "1_000",
                                  "0x1F",
                                  "1e3",
                                  "- a",
                                  "a: b",
                                  "a #b",
                                  "{a",
                                  "'",
                                  "\"\\\"",
                                  "%a",
                                  "@a",
                                  "*a",
                                  "&a",
                                  "!a",
                                  "?",
                                  "|",
                                  "---",
                                  "\x01\x1b\x7f",
                                  "\t",
                                  "\xc2\x80\xc2\x85",
                                  "\xe2\x80\xa8",
                                  "\xe2\x80\xae",
                                  "\xef\xbb\xbf",
                                  "\xef\xbf\xbd",
                                  "\xef\xbf\xbe",
                                  "\xef\xbf\xbf",
                                  "\xef\xb7\x90",
                                  "\xf0\x9f\xbf\xbe",
                                  "\xf3\xa0\x80\x81",
                                  "\xf0\x9f\x98\x80",
                                  "M\xc3\xbcller",
                                  "\xed\xa0\x80",
                                  "\xff",
                                  std::string(5000, 'x'),
                                  std::string(2000, '\x01')};
    std::string lines;
    for (size_t i = 0; i < std::size(values); ++i) {
        const std::string name = "ro.v" + std::to_string(i);
        for (const char* end : {"", "z"}) {
            lines += name + end + "=" + end + values[i] + end + "\n";
        }
    }
    Write("/device/odm/build.prop", lines + "ro." + std::string(2000, 'n') + "=1\n");
    Write("/device/mnt/vendor/my_product/cust/\xef\xbf\xbe \"/build.prop", "ro.v0=1\n");
    const std::string check = "check " + Path("/device") + " " + Path("/record.yaml") +
                              " --props " + Write("/phone", "[sys.lines]: [ a\n\n b ]\n");
    ASSERT_EQ(Run(check + " --record").status, 0);
    const Output same = Run(check);
    EXPECT_EQ(same.status, 0) << same.out << same.err;
    EXPECT_THAT(same.out, HasSubstr("2 variants"));
}

TEST_F(MatrixTest, ExpectationsSayWhatIsNotSo) {
    const std::string device = Carriers("/image");
    const std::string check = "check " + device + " ";
    const Output output = Run(check +
                              Write("/carriers.yaml",
                                    "expectations:\n"
                                    "  - name: <Voice> & \"data\"\n"
                                    "    variants: {sim-first: '*'}\n"
                                    "    properties:\n"
                                    "      ro.test.volte: 1\n"
                                    "      ro.test.apn: {matches: 'c[0-9]+\\.example'}\n"
                                    "  - variants: [{region: [IN, as-is]}]\n"
                                    "    properties:\n"
                                    "      ro.test.locale:\n"
                                    "        from: /mnt/vendor/my_product/cust/IN/"
                                    "build.prop:1\n"
                                    "      ro.test.none: {set: false}\n"
                                    "      ro.test.apn: {equals: c3.example, set: true}\n"
                                    "  - variants: {sim-first: [c0, none], channel: '*'}\n"
                                    "    properties: {ro.test.apn: {matches: '(c+)+x'}}\n") +
                              " --junit " + Path("/report.xml"));
    EXPECT_EQ(output.status, 1);
    EXPECT_EQ(output.out,
              Path("/carriers.yaml") +
                      ":7\n"
                      "  as it is: ro.test.locale is 'en', expected a value from "
                      "/mnt/vendor/my_product/cust/IN/build.prop:1; it comes from early "
                      "/mnt/vendor/my_product/cust/EU/build.prop:1\n" +
                      Path("/carriers.yaml") +
                      ":2 (<Voice> & \"data\")\n"
                      "  sim-first=c7: ro.test.volte is unset, expected '1'\n" +
                      Path("/carriers.yaml") +
                      ":13\n"
                      "  sim-first=none: expected a device that has sim-first 'none'\n"
                      "  channel=*: expected a device that has any channel\n"
                      "22 variants, 48 properties checked, 4 not as expected\n");
    std::string report;
    android::base::ReadFileToString(Path("/report.xml"), &report);
    EXPECT_THAT(report, HasSubstr("tests=\"24\" failures=\"4\""));
    EXPECT_THAT(report,
                ContainsRegex("name=\"sim-first=c7\" file=\"[^\"]*\" time=\"[0-9.]*\"><failure "
                              "type=\"unmet\" message=\"ro.test.volte is unset, "));
    EXPECT_THAT(report, HasSubstr(": &lt;Voice&gt; &amp; &quot;data&quot;\""));

    // The command line's steps precede the file's, and an unknown step is an error.
    const auto early = [this](const std::string& step) {
        return Write("/steps.yaml", "steps: [" + step +
                                            "]\nexpectations:\n  - variants: {}\n"
                                            "    properties: {ro.test.apn: {set: false}}\n");
    };
    EXPECT_EQ(Run(check + early("early")).status, 0);
    EXPECT_EQ(Run(check + early("early") + " persist").status, 1);
    EXPECT_THAT(Run(check + early("'sim:typo'")).err, HasSubstr("step 'sim:typo': the library"));

    // A file under a bind mount has both names.
    for (const char* place : {"/my_carrier/cust/build.prop:1", "/mnt/cota/package/cust/build.prop",
                              "/mnt/cota/package/build.prop"}) {
        const std::string expectations =
                Write("/from.yaml",
                      "steps: ['cota-service:mount_must_load']\nexpectations:\n"
                      "  - variants: {}\n    properties: {ro.sample.apn: {from: '" +
                              std::string(place) + "'}}\n");
        EXPECT_EQ(Run("check " + Sample("carrier-package") + " " + expectations).status,
                  std::string(place).find("cust") == std::string::npos ? 1 : 0)
                << place;
    }

    const Output wrong = Run(check + Write("/wrong.yaml",
                                           "steps: [erly]\n"
                                           "expectations:\n"
                                           "  - variants: {regon: EU}\n"
                                           "    properties:\n"
                                           "      a: {matches: '['}\n"
                                           "      b:\n"
                                           "      b: {from: odm, set: yes}\n"
                                           "    propertys: {}\n"
                                           "  - {}\n"
                                           "  - properties: {<<: {c: 1}, 'd e': 1}\n"
                                           "  - properties: {f: {set: false, equals: 1}}\n"
                                           "---\n"
                                           "expectations: []\n"));
    EXPECT_EQ(wrong.status, 2);
    EXPECT_EQ(wrong.out, "");
    for (const char* place :
         {":1:8: ", ":3:16: unknown axis 'regon'", ":5:20: '[' is no", ":6:7: expected a value",
          ":7:7: 'b' is given twice", ":8:5: unknown word 'propertys'",
          ":9:5: 'properties' is missing", ":10:18: merging lines",
          ":10:30: no phone has the property", ":11:21: set: false", ":12:1: a second document"}) {
        EXPECT_THAT(wrong.err, HasSubstr(Path("/wrong.yaml") + place));
    }
}

}  // namespace
