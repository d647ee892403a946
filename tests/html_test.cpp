// The page of a boot's report. What it looks like is seen in a browser; its text is checked here.

#include "output/html.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using extprop::HtmlPage;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using namespace std::string_literals;

// A page as a browser divides it.
struct Parts {
    std::string before, data, after;
};

Parts PartsOf(const std::string& page) {
    const std::string mark = "<script type=\"application/json\" id=\"data\">";
    const size_t start = page.find(mark) + mark.size();
    const size_t end = page.find("</script>", start);
    return {page.substr(0, start), page.substr(start, end - start), page.substr(end)};
}

json Report() {
    return json::parse(R"({
        "format": 1, "device": "/phone", "notes": ["a note"], "failure": null,
        "property_files": [{"path": "/odm/build.prop", "content": "kept out"}],
        "steps": [{"boot": 1, "step": "early", "files": [{"path": "/f", "change": "created"}],
                   "events": [{"event": "open", "path": "/odm/build.prop", "content": "kept out"},
                              {"event": "log", "severity": "ERROR", "message": "m"}]}]})");
}

json Explanation(const std::string& name, const std::string& value) {
    const json origin = {{"file", "/odm/" + name}, {"line", 3}, {"value", value}};
    return {{"format", 1}, {"properties", {{{"name", name}, {"origins", {origin}}}}}};
}

TEST(HtmlTest, DataIsWhatTheReportAndItsExplanationSay) {
    json report = Report();
    report["failure"] = json::parse(
            R"({"step": "early", "timed_out": false, "signal": "SIGSEGV", "last_file": "/f"})");
    const json explanation = Explanation("a", "1");
    const std::string page = HtmlPage(report, explanation);
    EXPECT_THAT(page, Not(HasSubstr("kept out")));
    report["steps"][0]["events"][0].erase("content");
    EXPECT_EQ(json::parse(PartsOf(page).data),
              json({{"device", "/phone"},
                    {"notes", {"a note"}},
                    {"failure", "the library crashed with SIGSEGV in step early, last loading /f"},
                    {"properties", explanation["properties"]},
                    {"steps", report["steps"]}}));
    EXPECT_EQ(json::parse(PartsOf(HtmlPage(Report(), explanation)).data)["failure"], nullptr);
}

// Whatever a device's files say, it comes back from the data as it is and changes nothing else.
TEST(HtmlTest, HostileTextStaysText) {
    const Parts plain = PartsOf(HtmlPage(Report(), Explanation("a", "1")));
    const auto expect = [&plain](const std::string& given, const std::string& shown) {
        SCOPED_TRACE(shown);
        json report = Report();
        report["device"] = report["steps"][0]["events"][1]["message"] = given;
        const Parts parts = PartsOf(HtmlPage(report, Explanation(given, given)));
        EXPECT_EQ(parts.before, plain.before);
        EXPECT_EQ(parts.after, plain.after);
        EXPECT_THAT(parts.data, Not(HasSubstr("<")));
        const json data = json::parse(parts.data);
        EXPECT_EQ(data["device"], shown);
        EXPECT_EQ(data["properties"], Explanation(shown, shown)["properties"]);
        EXPECT_EQ(data["steps"][0]["events"][1]["message"], shown);
    };
    for (const std::string& text :
         {"</script><script>alert(1)</script>"s, "<!--<script>"s, "\"'\\\"\\u003c&lt;"s,
          "{{data}} $& $1 @PAGE@ )page\""s, "\0\x01\x7f\n\r\t"s, "caf\xc3\xa9 \xe2\x80\xa8"s}) {
        expect(text, text);
    }
    expect("caf\xe9 \xff\xfe", "caf\xef\xbf\xbd \xef\xbf\xbd\xef\xbf\xbd");
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
