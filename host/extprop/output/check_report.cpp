#include "output/check_report.h"

#include <android-base/strings.h>
#include <nlohmann/json.hpp>

#include "output/json.h"
#include "output/printable.h"
#include "output/text.h"

namespace extprop {

namespace {

std::string CaseName(const CheckedCase& checked) {
    const std::string place = checked.file + ":" + std::to_string(checked.line);
    return checked.expectation.empty() ? place : place + " (" + checked.expectation + ")";
}

// Returns what is not as expected, without the variant.
std::string UnmetText(const UnmetExpectation& unmet) {
    if (unmet.failure) return FailureText(*unmet.failure);
    if (unmet.property.empty()) return "expected " + unmet.expected;
    std::string text = unmet.property + " is " +
                       (unmet.value ? "'" + *unmet.value + "'" : "unset") + ", expected " +
                       unmet.expected;
    if (unmet.origin) text += "; it comes from " + unmet.origin->at("text").get<std::string>();
    return text;
}

std::string XmlText(const std::string& text) {
    // XML takes no bytes that are no UTF-8 and not every character.
    constexpr char kReplacement[] = "\xef\xbf\xbd";
    std::string valid = json::parse(JsonLine(Printable(text)));
    for (const char* refused : {"\xef\xbf\xbe", "\xef\xbf\xbf"}) {
        valid = android::base::StringReplace(valid, refused, kReplacement, true);
    }
    std::string escaped;
    for (const char c : valid) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            default:
                escaped += c;
        }
    }
    return escaped;
}

}  // namespace

std::string CheckText(const CheckResult& result) {
    Text text;
    size_t unmet = 0;
    for (const CheckedCase& checked : result.cases) {
        if (checked.unmet.empty()) continue;
        text << VariantText(checked.variant) << ": " << CaseName(checked) << "\n";
        for (const UnmetExpectation& each : checked.unmet) text << "  " << UnmetText(each) << "\n";
        unmet += checked.unmet.size();
    }
    text << Count(result.variants, "variant", "variants") << ", "
         << Count(result.checked, "property", "properties") << " checked, "
         << (unmet == 0 ? "all as expected" : std::to_string(unmet) + " not as expected") << "\n";
    return text.string();
}

std::string JunitReport(const CheckResult& result) {
    size_t failures = 0;
    for (const CheckedCase& checked : result.cases) failures += !checked.unmet.empty();
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n";
    text += "<testsuite name=\"extprop check\" tests=\"" + std::to_string(result.cases.size()) +
            "\" failures=\"" + std::to_string(failures) + "\">\n";
    for (const CheckedCase& checked : result.cases) {
        text += "<testcase classname=\"" + XmlText(CaseName(checked)) + "\" name=\"" +
                XmlText(VariantText(checked.variant)) + "\"";
        if (checked.unmet.empty()) {
            text += "/>\n";
            continue;
        }
        text += "><failure message=\"" + std::to_string(checked.unmet.size()) +
                " not as expected\">" + "\n";
        for (const UnmetExpectation& unmet : checked.unmet)
            text += XmlText(UnmetText(unmet)) + "\n";
        text += "</failure></testcase>\n";
    }
    return text + "</testsuite>\n</testsuites>\n";
}

}  // namespace extprop
