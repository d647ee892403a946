// Reports of a phone in every form, and files that only look like one.

#include <filesystem>
#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "phone_forms.h"
#include "tool.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using namespace std::string_literals;

class PhoneTest : public ToolTest {
  protected:
    PhoneTest() { std::filesystem::create_directory(Path("/device")); }

    // Returns the properties that a boot which changes nothing begins with.
    Output Read(const std::string& file, const std::string& redirections = "") const {
        return Run("boot -q " + Path("/device") + " early --props " + file, redirections);
    }
};

const Properties kProperties = {{"persist.sys.a", "1"},
                                {"ro.empty", ""},
                                {"ro.lines", "one\n\n[two]\nthree]"},
                                {"ro.like", "[x]: y"}};
const Properties kPersistent = {{"persist.sys.a", "1"}, {"persist.sys.long", std::string(90, 'x')}};

TEST_F(PhoneTest, IsRecognisedByWhatItIs) {
    const Properties lines = {{"persist.sys.a", "1"}, {"ro.b", "x = [y]"}};
    const std::string report = BugReportForm(kProperties);
    std::string windows = ListedForm(lines);
    for (size_t at = 0; (at = windows.find('\n', at)) != windows.npos; at += 2) {
        windows.replace(at, 1, "\r\n");
    }
    std::string other = report;  // older phones end the section with a title of their own
    other.replace(other.find("------ 0.031s"), 13, "[SYSTEM PROPERTIES: 0.031s elapsed]\n");
    const struct {
        std::string content;
        Properties properties;
    } cases[] = {
            {ListedForm(kProperties), kProperties},
            {windows, lines},
            {PropertyFileForm(lines), lines},
            {"\xef\xbb\xbf" + PropertyFileForm(lines), lines},
            {"import /oem/oem.prop ro.*\nro.b = x = [y] \n\tpersist.sys.a=1", lines},
            {report, kProperties},
            {other, kProperties},
            {Zip({{"FS/data/big.txt", std::string(100'000, '-')},
                  {"bugreport-x.txt", report},
                  {"main_entry.txt", "bugreport-x.txt"}}),
             kProperties},
            {StoreForm(kPersistent), kPersistent},
            // Unknown fields of each kind are skipped; missing ones are empty.
            {"\x38\x96\x01\x0a\x19\x1d"
             "four\x0a\x09persist.a\x21"
             "or eight" +
                     StoreForm({{"persist.b", "2"}}),
             {{"persist.a", ""}, {"persist.b", "2"}}},
    };
    for (const auto& known : cases) {
        const Output output = Read(Write("/phone", known.content));
        EXPECT_EQ(output.out, ListedForm(known.properties)) << known.content << output.err;
        EXPECT_EQ(Read("-", "<" + Path("/phone")).out, output.out);
    }

    for (const auto& [name, value] : kPersistent) Write("/older/" + name, value);
    Write("/older/.temp.x", "half");
    EXPECT_EQ(Read(Path("/older")).out, ListedForm(kPersistent));
    Write("/newer/persistent_properties", StoreForm(kPersistent));
    EXPECT_EQ(Read(Path("/newer")).out, ListedForm(kPersistent));
}

TEST_F(PhoneTest, AnythingElseIsSaidToBeWhatItLooksLike) {
    const std::string report = BugReportForm(kProperties);
    const std::string zip = Zip({{"a.txt", std::string(5'000, 'a') + report}});
    std::string failed = report;
    failed.insert(failed.find("------ 0.031s"), "*** getprop: timed out after 10.000s\n");
    const struct {
        std::string content;
        std::string error;
    } cases[] = {
            {"", "it is empty"},
            {"\n \r\n", "it is empty"},
            {"# no more\n", "it has no properties"},
            {"[ro.a]: [u:object_r:x:s0]\n[ro.b]: [u:object_r:y:s0]\n",
             "it looks like what getprop -Z prints, contexts instead of values"},
            {"[ro.a]: [string]\n[ro.b]: [enum x y]\n",
             "it looks like what getprop -T prints, types instead of values"},
            {"ro.a=1\n[ro.b]: [1]\n[ro.c]: [cut\noff", "the value's closing ] is missing"},
            {"ro.a=1\n\nerror: closed\n",
             "'error: closed' is neither name=value nor [name]: [value]"},
            {report.substr(0, report.find("------ 0.031s")),
             "the bug report's section SYSTEM PROPERTIES has no end"},
            {report.substr(0, report.find("------ SYSTEM")),
             "it looks like a bug report without the section SYSTEM PROPERTIES"},
            {failed, "has no properties, only '*** getprop: timed out after 10.000s'"},
            {zip.substr(0, zip.size() / 2), "the zip is truncated, damaged or encrypted"},
            {Zip({{"a.txt", "a=b"}}), "it looks like a zip, but no text in it has"},
            {StoreForm(kPersistent).substr(0, 40), "a store of persistent properties, truncated"},
            {"\xff\xfe[\0"s, "it looks like text in UTF-16, as PowerShell writes it"},
            {"\x1f\x8b\x08", "it looks like a gzip file"},
            {"ro.a=\0\1"s, "it looks like binary data"},
    };
    for (const auto& known : cases) {
        const Output output = Read(Write("/phone", known.content));
        EXPECT_EQ(output.status, 2) << known.error;
        EXPECT_EQ(output.out, "");
        EXPECT_THAT(output.err, AllOf(StartsWith("extprop: " + Path("/phone")),
                                      HasSubstr(known.error), EndsWith("\n")));
    }
    EXPECT_THAT(Read(Path("/device")).err, HasSubstr("there are no persistent properties in it"));
    Write("/older/ro.build.id", "x");
    EXPECT_THAT(Read(Path("/older")).err,
                HasSubstr("'ro.build.id' in it is not the file of a persistent property"));
    const Properties large = {{"persist.a", std::string(17 << 20, 'a')}};
    for (const std::string& content : {std::string(17 << 20, '\n') + "a=b", StoreForm(large)}) {
        EXPECT_THAT(Read(Write("/phone", content)).err,
                    HasSubstr("more than 16777216 bytes of properties"));
    }
}

}  // namespace
