// The page of a boot's report. Its text is checked here; its looks can be judged in a browser only.

#include "output/page.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "output/documents.h"
#include "output/standard_error.h"

namespace {

using extprop::ComparisonPage;
using extprop::json;
using extprop::ReportPage;
using testing::HasSubstr;
using testing::Not;
using namespace std::string_literals;

// The parts of a page, as a browser divides it.
struct Parts {
    std::string before, data, after;
};

Parts PartsOf(const std::string& page) {
    const std::string mark = "<script type=\"application/json\" id=\"data\">";
    const size_t start = page.find(mark) + mark.size();
    const size_t end = page.find("</script>", start);
    return {page.substr(0, start), page.substr(start, end - start), page.substr(end)};
}

extprop::Report MakeReport(const std::string& text) {
    extprop::LogEvent log;
    log.severity = "ERROR";
    log.message = text;
    return {text, {"a note"}, {}, {{1, "early", {log}, {{"/f", "created"}}}}, std::nullopt, {}};
}

extprop::Explanation MakeExplanation(const std::string& text) {
    extprop::Origin origin;
    origin.kind = extprop::OriginKind::kFile;
    origin.file = "/odm/" + text;
    origin.value = text;
    return {"/phone", {{text, text, {origin}}}, {}};
}

// Whatever text a device's files hold, the page's data hold it unchanged, and nothing else changes.
TEST(PageTest, HostileTextStaysText) {
    const Parts plain = PartsOf(ReportPage(MakeReport("m"), MakeExplanation("a")));
    const auto expect = [&plain](const std::string& given, const std::string& shown) {
        SCOPED_TRACE(shown);
        const Parts parts = PartsOf(ReportPage(MakeReport(given), MakeExplanation(given)));
        EXPECT_EQ(parts.before, plain.before);
        EXPECT_EQ(parts.after, plain.after);
        EXPECT_THAT(parts.data, Not(HasSubstr("<")));
        const json data = json::parse(parts.data);
        EXPECT_EQ(data["device"], shown);
        EXPECT_EQ(data["properties"][0]["name"], shown);
        EXPECT_EQ(data["steps"][0]["events"][0]["message"], shown);
    };
    for (const std::string& text :
         {"</script><script>alert(1)</script>"s, "<!--<script>"s, "\"'\\\"\\u003c&lt;"s,
          "{{data}} $& $1 @PAGE@ )page\""s, "\0\x01\x7f\n\r\t"s, "caf\xc3\xa9 \xe2\x80\xa8"s}) {
        expect(text, text);
    }
    expect("caf\xe9 \xff\xfe", "caf\xef\xbf\xbd \xef\xbf\xbd\xef\xbf\xbd");
}

// A healthy boot logs lines of every severity that need no attention.
TEST(PageTest, WhatTheTextFoldsIsMarkedAsUsual) {
    for (const auto& [message, is_usual] :
         {std::pair("Couldn't load property file '/odm/build.prop': No such file or directory",
                    true),
          std::pair("there is no config file: /my_product/etc/devicename.cfg", false)}) {
        const Parts parts = PartsOf(ReportPage(MakeReport(message), MakeExplanation("a")));
        const json event = json::parse(parts.data)["steps"][0]["events"][0];
        EXPECT_EQ(event.value("usual", false), is_usual) << message;
    }
}

// The pages must work from a mail or a build server's archive.
TEST(PageTest, PagesAreSelfContained) {
    extprop::Comparison comparison;
    comparison.phone = comparison.same["</script>"] = "</script><script>";
    for (const std::string& page :
         {ReportPage(MakeReport("m"), MakeExplanation("a")), ComparisonPage(comparison)}) {
        EXPECT_EQ(page.rfind("<!DOCTYPE html>\n", 0), 0u);
        EXPECT_EQ(page.substr(page.size() - 8), "</html>\n");
        EXPECT_THAT(page, HasSubstr("<meta charset=\"utf-8\">"));
        EXPECT_THAT(page, HasSubstr("default-src 'none';"));
        EXPECT_THAT(page, HasSubstr("<noscript>\n<p"));
        EXPECT_THAT(PartsOf(page).data, Not(HasSubstr("<")));
    }
}

TEST(StandardErrorTest, AMessageErasesTheStatusLine) {
    testing::internal::CaptureStderr();
    extprop::StatusLine line;
    line.Show("half");
    extprop::PrintMessage("stopped");
    extprop::PrintMessage("really");
    line.Show("");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "\r\x1b[Khalf\r\x1b[Kextprop: stopped\nextprop: really\n");
}

}  // namespace
