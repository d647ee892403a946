// Untrusted property dumps, expectations and arguments.

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <regex>

#include <android-base/strings.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "sanitized.h"
#include "stranger.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

constexpr char kEvil[] = "\x1b[2J\r\n::error ::\xc2\x9b\xe2\x80\xae\x7f\xff";

class StrangersTest : public StrangerTest {
  protected:
    // Makes a device with 250 values on each of four axes.
    void MakeAxes() const {
        for (int i = 0; i < 250; ++i) {
            const std::string value = "v" + std::to_string(i);
            for (const char* leaf :
                 {"SimSwitchFirstTime", "SimSwitchCurrentTime", "switchCarrierChannel"}) {
                fs::create_directories(Path("/d/odm/properties/" + value + "/" + leaf));
            }
            fs::create_directories(Path("/d/mnt/vendor/my_product/cust/" + value));
        }
    }
};

std::string Repeated(const std::string& text, size_t times) {
    std::string repeated;
    for (size_t i = 0; i < times; ++i) repeated += text;
    return repeated;
}

TEST_F(StrangersTest, ResultsGoWhereTheyWereAskedTo) {
    Link(Path("/outside/kept"), "/d/link");
    Link("../outside", "/d/out");
    Link("../outside/none", "/d/dangling");
    ASSERT_EQ(mkfifo(Path("/d/fifo").c_str(), 0600), 0);
    for (const char* name : {"d/link", "d/out/new", "d/dangling", "d/fifo", "d/out/../x"}) {
        for (const Words& words :
             {Words{"check", "d", name, "--record"}, Words{"boot", "d", "early", "--html", name},
              Words{"explain", "d", "--all", "--html", name}, Words{"lint", "d", "--sarif", name},
              Words{"matrix", "d", "--html", name}}) {
            const Output output = RunWords(words);
            EXPECT_EQ(output.status, 2) << words[0] << name;
            EXPECT_THAT(output.err, testing::ContainsRegex(": .*(link|not a regular file)"))
                    << name;
        }
    }
    EXPECT_TRUE(fs::is_symlink(Path("/d/link")));

    // A file beside the target is somebody else's, and the target keeps its permissions.
    Write("/lint.sarif.part", "theirs");
    chmod(Write("/lint.sarif", "old").c_str(), 0640);
    Link("lint.sarif", "/link.sarif");
    EXPECT_EQ(RunWords({"lint", "d", "--sarif", "link.sarif"}).status, 2);
    EXPECT_EQ(Content("/lint.sarif"), "old");
    EXPECT_LT(RunWords({"lint", "d", "--sarif", "lint.sarif"}).status, 2);
    EXPECT_EQ(json::parse(Content("/lint.sarif"))["version"], "2.1.0");
    EXPECT_EQ(Content("/lint.sarif.part"), "theirs");
    struct stat status;
    ASSERT_EQ(stat(Path("/lint.sarif").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640);
    EXPECT_EQ(RunWords({"lint", "d", "--sarif", "/dev/full"}).status, 2);
    EXPECT_EQ(std::distance(fs::directory_iterator(Path("")), {}), 6);
    EXPECT_EQ(RunWords({"check", "d", "d/new.yaml", "--record"}).status, 0);
    EXPECT_EQ(RunWords({"check", "d", "d/new.yaml"}).status, 0);

    // Files that the command reads are never replaced, whatever they are read as.
    Shell("mke2fs -q -t ext4 -F -d d/odm odm.img 1M; cp odm.img d; ln odm.img same; "
          "tar -cf phone.tar odm.img; echo '[ro.x]: [1]' >props");
    Link("../outside", "/e/out");
    fs::create_directory(Path("/e/odm"));
    const std::string image = Content("/odm.img"), archive = Content("/phone.tar");
    const struct {
        Words words;
        const char* error;
    } rows[] = {
            {{"boot", "odm.img", "--html", "odm.img"}, "odm.img: this is an input"},
            {{"lint", "odm.img", "--sarif", "same"}, "same: this is an input"},
            {{"lint", "phone.tar", "--code-quality", "phone.tar"}, "this is an input"},
            {{"lint", "phone.tar", "--write-baseline", "phone.tar"}, "this is an input"},
            {{"check", "phone.tar", "phone.tar", "--record", "--force"}, "this is an input"},
            {{"check", "d", "d/new.yaml", "--junit", "d/new.yaml"}, "this is an input"},
            {{"explain", "d", "--all", "--html", "d/odm.img"},
             "images and archives have such names"},
            {{"matrix", "d", "--html", "d/Payload.bin"}, "images and archives have such names"},
            {{"matrix", "d", "--image", "my_x=odm.img", "--html", "odm.img"}, "this is an input"},
            {{"boot", "d", "--props", "props", "--html", "props"}, "props: this is an input"},
            {{"matrix", "d", "./e", "--markdown", "e/out/new"}, "is a link"},
            {{"matrix", "./e", "./d", "--markdown", "e/out/new"}, "is a link"},
            {{"diff", "d", "e", "--props", "e/out/kept"}, "is a link"},
            {{"boot", "e", "--props", "e/out"}, "is a link"},
    };
    for (const auto& [words, error] : rows) {
        const Output output = RunWords(words);
        EXPECT_EQ(output.status, 2) << words[0] << " " << words.back();
        EXPECT_THAT(output.err, HasSubstr(error));
    }
    EXPECT_EQ(Content("/odm.img"), image);
    EXPECT_EQ(Content("/phone.tar"), archive);
    EXPECT_EQ(Content("/props"), "[ro.x]: [1]\n");
}

TEST_F(StrangersTest, InputsAreReadWithinLimits) {
    const std::string deep = std::string(100'000, '[');
    const std::string patterns = [] {
        std::string text = "expectations: [{properties: {";
        for (int i = 0; i < 2'100; ++i) {
            text += "a" + std::to_string(i) + ": {matches: 'a{9}" + std::to_string(i) + "'}, ";
        }
        return text + "}}]\n";
    }();
    const std::string aliases = "expectations:\n - &a\n  properties: {" + Repeated("x: 1, ", 1) +
                                "}\n" + Repeated(" - *a\n", 20'000);
    const std::string bomb = "expectations:\n - properties: &p {" + [] {
        std::string text;
        for (int i = 0; i < 20'000; ++i) text += "a" + std::to_string(i) + ": b, ";
        return text;
    }() + "}\n" + Repeated(" - properties: *p\n", 20'000);
    const std::string line = R"({"failure":null,"properties":{"ro.x":)";
    Link(Path("/outside/kept"), "/d/link");
    ASSERT_EQ(mkfifo(Path("/d/fifo").c_str(), 0600), 0);
    MakeHole("/d/hole");
    const struct {
        const char* name;
        Words words;  // before the file
        std::string content;
        const char* error;
    } rows[] = {
            {"d/hole", {"boot", "d", "--props"}, "", "d/hole: this has more than 201326592 bytes"},
            {"/dev/zero", {"boot", "d", "--props"}, "", "/dev/zero: this has more than 201326592"},
            {"d/link", {"boot", "d", "--props"}, "", "d/link: this is a link"},
            {"d/fifo", {"boot", "d", "--props"}, "", "d/fifo: not a regular file"},
            {"d/hole", {"check", "d"}, "", "d/hole: this has more than 16777216 bytes"},
            {"/dev/zero", {"check", "d"}, "", "/dev/zero: this has more than 16777216 bytes"},
            {"d/link", {"check", "d"}, "", "d/link: this is a link"},
            {"d/fifo", {"check", "d"}, "", "d/fifo: not a regular file"},
            {"/dev/zero",
             {"matrix", "--merge"},
             "",
             "/dev/zero:1: this line has more than 67108864"},
            {"d/hole",
             {"matrix", "--merge"},
             "",
             "d/hole:1: this line has more than 67108864 bytes"},
            {"props",
             {"boot", "d", "--props"},
             [] {
                 std::string text;
                 for (int i = 0; i < 100'002; ++i) text += "a" + std::to_string(i) + "=\n";
                 return text;
             }(),
             "more than 100000 properties"},
            {"deep.yaml", {"check", "d"}, deep, "deep.yaml:1:"},
            // The YAML parser would loop forever at a mark that no node begins with.
            {"mark.yaml", {"check", "d"}, ",", "mark.yaml:1:1: a second document begins here"},
            {"wide.yaml",
             {"check", "d"},
             "[" + Repeated("a,", 4'000'000) + "]",
             "more than 1000000 nodes"},
            {"bomb.yaml", {"check", "d"}, bomb, "more than 1000000 nodes"},
            {"patterns.yaml", {"check", "d"}, patterns, "more than 2048 regular expressions"},
            {"repeats.yaml",
             {"check", "d"},
             "expectations: [{properties: {a: {matches: '((a{100}){100}){100}'}}}]\n",
             "is no regular expression"},
            {"deep.json", {"matrix", "--merge"}, line + deep, "nested more than 64 levels deep"},
            {"wide.json",
             {"matrix", "--merge"},
             line + "[" + Repeated("0,", 5'000'000) + "0]}}",
             "more than 4000000 values"},
            {"deep.json",
             {"lint", "d", "--baseline"},
             R"({"format":)" + deep,
             "deep.json: this is nested more than 64 levels deep"},
            {"many.json",
             {"lint", "d", "--baseline"},
             R"({"format": 1, "findings": [)" + Repeated("{},", 300'000) + "{}]}",
             "many.json:1: this is no finding"},
            {"odd.json",
             {"matrix", "--merge"},
             R"({"summary": {"variants": [], "properties": [{"name": "a", "values": [3]}]}})",
             "not a line of extprop matrix --json"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.words[0]) + " " + row.name);
        if (!row.content.empty()) Write(std::string("/") + row.name, row.content);
        Words words = row.words;
        words.emplace_back(row.name);
        const Output output = RunWords(words);
        EXPECT_EQ(output.status, 2);
        EXPECT_THAT(output.err, HasSubstr(row.error));
    }
    Write("/aliases.yaml", aliases);
    EXPECT_EQ(RunWords({"check", "d", "aliases.yaml"}).status, 1);
}

TEST_F(StrangersTest, VariantsAreCountedBeforeTheyAreMade) {
    MakeAxes();
    const std::string axes = "region,sim-first,sim-current,channel";
    Write("/e.yaml",
          "expectations:\n- variants: {region: '*', sim-first: '*', sim-current: '*', channel: "
          "'*'}\n  properties: {ro.a: '1'}\n");
    for (const Words& words : {Words{"check", "d", "e.yaml"}, Words{"matrix", "d", "--over", axes},
                               Words{"matrix", "d", "--over", axes, "--list"},
                               Words{"matrix", "d", "d", "--over", axes}}) {
        const Output output = RunWords(words);
        EXPECT_EQ(output.status, 2);
        EXPECT_THAT(output.err, HasSubstr("more than 100000 variants"));
    }
    // Variants that are left out do not count.
    const Output list = RunWords({"matrix", "d", "--over", axes, "--only", "channel=v1", "--only",
                                  "sim-current=v2", "--list", "--json"});
    EXPECT_EQ(list.status, 0);
    const std::string kVariant = R"("channel":"v1")";
    size_t variants = 0;
    for (size_t at = 0; (at = list.out.find(kVariant, at)) != std::string::npos; ++at) ++variants;
    EXPECT_EQ(variants, 251u * 251);
}

TEST_F(StrangersTest, BootsEndAtTheirLimits) {
    constexpr size_t kSaid = 300;
    const auto expect_limit = [&](const std::string& limit, std::vector<Words> commands) {
        for (Words& words : commands) {
            words.insert(words.end(), {"--timeout", "900"});
            const Output output = RunWords(words);
            EXPECT_EQ(output.status, 3) << words[0];
            const std::string said = output.err.empty() ? output.out : output.err;
            EXPECT_TRUE(std::regex_search(said.substr(said.size() - std::min(said.size(), kSaid)),
                                          std::regex("stopped at a limit, " + limit)))
                    << words[0];
        }
    };
    const auto import_twice = [&](int levels, const std::string& content) {
        fs::remove_all(Path("/d/odm"));
        for (int i = 0; i < levels; ++i) {
            const std::string next = "import /odm/" + std::to_string(i + 1) + ".prop\n";
            Write("/d/odm/" + (i == 0 ? "build" : std::to_string(i)) + ".prop",
                  content + next + next);
        }
    };
    import_twice(34, "ro.a=1\n");
    expect_limit("[0-9]+ opened files", {{"boot", "d", "early"}});
    import_twice(10, "ro.a=" + std::string(8 << 20, 'a') + "\n");
    expect_limit("[0-9]+ bytes", {{"boot", "d", "early"}, {"explain", "d", "--all", "early"}});
}

TEST_F(StrangersTest, MemoryHasAnEnd) {
    if (kIsSanitized) GTEST_SKIP() << "a sanitizer's own memory has none";
    std::string text;
    for (int i = 0; i < 450'000; ++i) text += "a" + std::to_string(i) + "=\n";
    Write("/d/odm/build.prop", text);
    EXPECT_THAT(RunWords({"boot", "d", "early"}).err,
                testing::ContainsRegex("stopped at a limit, [0-9]+ bytes of memory"));
    const Output explained = RunWords({"explain", "d", "--all", "early"});
    EXPECT_EQ(explained.status, 2);
    EXPECT_THAT(explained.err, testing::ContainsRegex("more than [0-9]+ bytes of memory"));
    // Wherever the boot meets it, also where it sends its result.
    for (size_t bytes = 4 << 20; bytes <= 8 << 20; bytes += 1 << 20) {
        Write("/d/odm/build.prop", "ro.a=" + std::string(bytes, 'a') + "\n");
        const std::string command = "ulimit -S -d 24000; " EXTPROP " boot -q " + Path("/d") +
                                    " early >" + Path("/out") + " 2>/dev/null";
        const int status = WEXITSTATUS(system(command.c_str()));
        EXPECT_EQ(status == 0, fs::file_size(Path("/out")) > bytes) << bytes << ": " << status;
    }
}

TEST_F(StrangersTest, DeepDirectoriesHideNoFiles) {
    std::string deep;
    for (int i = 0; i < 300; ++i) deep += "/a";
    const std::string roots[] = {"/odm", "/mnt/vendor/my_product", "/mnt/vendor/my_stock"};
    const std::string file = "/properties/key/SimSwitchFirstTime/a.prop";
    for (const std::string& root : roots) {
        fs::create_directories(Path("/d" + root + deep));
        Write("/d" + root + file, "ro.a=1\n");
    }
    const std::string command =
            "ulimit -n 200; " EXTPROP " explain " + Path("/d") + " ro.a early >" + Path("/out");
    EXPECT_EQ(WEXITSTATUS(system(command.c_str())), 0);
    std::string out;
    EXPECT_TRUE(android::base::ReadFileToString(Path("/out"), &out));
    for (const std::string& root : roots) EXPECT_THAT(out, HasSubstr(root + file));
}

TEST_F(StrangersTest, AMatrixOfHangsEnds) {
    ASSERT_EQ(mkfifo(Path("/d/odm/fifo.prop").c_str(), 0600), 0);
    Write("/d/odm/build.prop", "import /odm/fifo.prop\n");
    for (int i = 0; i < 20; ++i) {
        fs::create_directories(Path("/d/mnt/vendor/my_product/cust/v" + std::to_string(i)));
    }
    const Output output = RunWords({"matrix", "d", "early", "--timeout", "1", "--jobs", "20"});
    EXPECT_EQ(output.status, 2);
    EXPECT_THAT(output.err, HasSubstr("more than 16 variants hung or met a limit, such as region"));
}

TEST_F(StrangersTest, WhatIsToldIsPrintable) {
    const std::string evil = kEvil;
    std::string name = evil;
    name.erase(std::remove(name.begin(), name.end(), '/'), name.end());
    Write("/d/odm/" + name + ".prop", "nothing\n");
    Write("/d/odm/build.prop",
          "import /odm/" + android::base::StringReplace(name, "\n", "", true) +
                  ".prop\n::error::x=1\nro.b=::error ::\x1b\n" +
                  "ro.html=</script><script>alert(1)</script>\"'<&>##vso[task.x]\xc2\x9b\n");
    Write("/d/my_" + name + ".img", "no image");
    Write("/" + name, "ro.a\n");
    const std::string quoted = "\"\\e[2J\\n::error ::\\x9b\\r\"";
    Write("/e.yaml", quoted + ": 1\nexpectations:\n- " + quoted + ": 1\n  name: " + quoted +
                             "\n  variants: {" + quoted + ": 1}\n  properties: {" + quoted +
                             ": 1, a: {matches: " + quoted + "}, b: {" + quoted + ": 1}}\n");
    Write("/good.yaml", "expectations:\n- name: " + quoted + "\n  variants: [{region: " + quoted +
                                "}, {}]\n  properties: {ro.html: " + quoted + "}\n");
    Write("/line.json", "{\"variant\": {\"" + evil + "\": 1}}\n");
    for (const Words& words : {
                 Words{"boot", "d", "early"},
                 Words{"boot", "d", "early", "-v"},
                 Words{"boot", "d", "early", "--json"},
                 Words{"boot", evil},
                 Words{"boot", "d", evil},
                 Words{"boot", "d", "early:" + evil},
                 Words{"boot", "d", "--" + evil},
                 Words{"boot", "d", "--slot", evil},
                 Words{"boot", "d", "--set", evil},
                 Words{"boot", "d", "--set", evil + "=" + evil},
                 Words{"boot", "d", "--edit", "/" + evil + ":a=b"},
                 Words{"boot", "d", "--props", evil},
                 Words{"boot", "d", "--props", name},
                 Words{"boot", "d", "--html", "none/" + evil},
                 Words{evil},
                 Words{"explain", "d", evil},
                 Words{"explain", "d", "--all"},
                 Words{"explain", "d", "--all", "--json"},
                 Words{"diff", "d", "--a", "early:/odm", "--b", "early:/none"},
                 Words{"lint", "d"},
                 Words{"lint", "d", "--json"},
                 Words{"lint", "d", "--sarif", "/dev/stdout"},
                 Words{"check", "d", "e.yaml"},
                 Words{"check", "d", "good.yaml", "--junit", "/dev/stdout"},
                 Words{"check", "d", "good.yaml", "--json"},
                 Words{"check", "d", evil},
                 Words{"matrix", "d", "::*", "early:/odm"},
                 Words{"matrix", "d", "--over", evil},
                 Words{"matrix", "d", "--only", "region=" + evil},
                 Words{"matrix", "--merge", "line.json"},
                 Words{"matrix", "--merge", evil},
         }) {
        SCOPED_TRACE(testing::PrintToString(words));
        RunWords(words);
    }
    const Output page = RunWords({"boot", "d", "early", "--html", "page.html"});
    EXPECT_THAT(Content("/page.html"), Not(HasSubstr("</script><script>alert")));
    EXPECT_THAT(RunWords({"boot", "d", "early"}).out, Not(HasSubstr("##vso[")));
}

}  // namespace
