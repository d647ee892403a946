// The page of a boot's report. What it looks like is seen in a browser; its text is checked here.

#include "html.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using extprop::HtmlPage;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

constexpr char kDataStart[] = "<script type=\"application/json\" id=\"data\">";
constexpr char kDataEnd[] = "</script>";

// Returns where a browser sees the page's data begin and end.
std::pair<size_t, size_t> DataRange(const std::string& page) {
    const size_t start = page.find(kDataStart) + sizeof(kDataStart) - 1;
    return {start, page.find(kDataEnd, start)};
}

std::string DataText(const std::string& page) {
    const auto [start, end] = DataRange(page);
    return page.substr(start, end - start);
}

json Report() {
    return json::parse(R"({
        "format": 1, "device": "/phone", "notes": ["a note"], "boots": [{"properties": {}}],
        "failure": null, "properties": {"a": "1"},
        "property_files": [{"path": "/odm/build.prop", "content": "kept out"}],
        "steps": [{"boot": 1, "step": "early", "files": [{"path": "/f", "change": "created"}],
                   "events": [{"event": "open", "path": "/odm/build.prop", "for": "reading",
                               "load_depth": 1, "content": "kept out"},
                              {"event": "log", "severity": "ERROR", "file": "utils.cpp", "line": 7,
                               "message": "m"},
                              {"event": "map", "properties": {"a": "1"}, "changes": []}]}]})");
}

json Explanation(const std::string& name, const std::string& value) {
    const json origin = {{"kind", "file"},  {"file", "/odm/" + name}, {"line", 3},     {"boot", 1},
                         {"step", "early"}, {"value", value},         {"fate", "wins"}};
    return {{"format", 1},
            {"device", "/phone"},
            {"properties", {{{"name", name}, {"value", value}, {"origins", {origin}}}}}};
}

TEST(HtmlTest, DataIsWhatTheReportAndItsExplanationSay) {
    json report = Report();
    const json explanation = Explanation("a", "1");
    const std::string page = HtmlPage(report, explanation);
    EXPECT_THAT(page, Not(HasSubstr("kept out")));
    report["steps"][0]["events"][0].erase("content");
    const json data = json::parse(DataText(page));
    EXPECT_EQ(data, json({{"device", "/phone"},
                          {"notes", {"a note"}},
                          {"failure", nullptr},
                          {"properties", explanation["properties"]},
                          {"steps", report["steps"]}}));
}

TEST(HtmlTest, FailureIsSaidInWords) {
    json report = Report();
    report["failure"] = {{"step", "early"},
                         {"timed_out", false},
                         {"signal", "SIGSEGV"},
                         {"last_file", "/odm/build.prop"}};
    const json data = json::parse(DataText(HtmlPage(report, Explanation("a", "1"))));
    EXPECT_EQ(data["failure"],
              "the library crashed with SIGSEGV in step early, last loading /odm/build.prop");
}

// Whatever a device's files say, it comes back from the data as it is and changes nothing else.
TEST(HtmlTest, HostileTextStaysText) {
    const std::string plain = HtmlPage(Report(), Explanation("a", "1"));
    const auto [plain_start, plain_end] = DataRange(plain);
    const struct {
        std::string given;
        std::string shown;
    } cases[] = {
            {"</script><script>alert(1)</script>", "</script><script>alert(1)</script>"},
            {"<!--<script>", "<!--<script>"},
            {"</SCRIPT >", "</SCRIPT >"},
            {"\"'\\\"\\u003c&lt;", "\"'\\\"\\u003c&lt;"},
            {"{{data}} $& $1 @PAGE@ )page\"", "{{data}} $& $1 @PAGE@ )page\""},
            {std::string("\0\x01\x7f\n\r\t", 6), std::string("\0\x01\x7f\n\r\t", 6)},
            {"caf\xc3\xa9 \xe2\x80\xa8", "caf\xc3\xa9 \xe2\x80\xa8"},
            {"caf\xe9 \xff\xfe", "caf\xef\xbf\xbd \xef\xbf\xbd\xef\xbf\xbd"},
    };
    for (const auto& hostile : cases) {
        SCOPED_TRACE(hostile.shown);
        json report = Report();
        report["device"] = report["notes"][0] = hostile.given;
        report["steps"][0]["events"][1]["message"] = hostile.given;
        const std::string page = HtmlPage(report, Explanation(hostile.given, hostile.given));
        const auto [start, end] = DataRange(page);
        EXPECT_EQ(page.substr(0, start), plain.substr(0, plain_start));
        EXPECT_EQ(page.substr(end), plain.substr(plain_end));
        const std::string text = page.substr(start, end - start);
        EXPECT_THAT(text, Not(HasSubstr("<")));
        const json data = json::parse(text);
        EXPECT_EQ(data["device"], hostile.shown);
        EXPECT_EQ(data["notes"][0], hostile.shown);
        EXPECT_EQ(data["properties"], Explanation(hostile.shown, hostile.shown)["properties"]);
        EXPECT_EQ(data["steps"][0]["events"][1]["message"], hostile.shown);
    }
}

// The page must work from a mail or a build server's archive, and never make markup of text.
TEST(HtmlTest, PageIsSelfContainedAndMakesNoMarkupOfText) {
    const std::string page = HtmlPage(Report(), Explanation("a", "1"));
    EXPECT_EQ(page.rfind("<!DOCTYPE html>\n", 0), 0u);
    EXPECT_EQ(page.substr(page.size() - 8), "</html>\n");
    EXPECT_THAT(page, HasSubstr("<meta charset=\"utf-8\">"));
    EXPECT_THAT(page, HasSubstr("default-src 'none';"));
    EXPECT_THAT(page, HasSubstr("<noscript>\n<p"));
    for (const char* refused : {"://", " src=", " href=", "url(", "@import", "fetch(", "innerHTML",
                                "outerHTML", "insertAdjacentHTML", "document.write", "eval("}) {
        EXPECT_THAT(page, Not(HasSubstr(refused)));
    }
}

}  // namespace
