#include "output/page.h"

#include <string_view>

#include <android-base/strings.h>
#include <nlohmann/json.hpp>

#include "output/compare_text.h"
#include "output/documents.h"
#include "output/text.h"
#include "page_template.h"

namespace extprop {

namespace {

// The pages' templates have this where the data go.
constexpr std::string_view kDataMark = "{{data}}";

// Escapes "<", which JSON has in strings only, so that no text can end the script element.
std::string ScriptText(const json& data) {
    return android::base::StringReplace(JsonLine(data), "<", "\\u003c", true);
}

std::string Page(std::string page, const json& data) {
    return page.replace(page.find(kDataMark), kDataMark.size(), ScriptText(data));
}

}  // namespace

std::string ReportPage(const Report& report, const Explanation& explanation) {
    json data = ToJson(report);
    for (json& step : data["steps"]) {
        for (json& event : step["events"]) {
            if (event["event"] == "log" && IsUsual(event["message"])) event["usual"] = true;
        }
    }
    data["failure"] = report.failure ? json(FailureText(*report.failure)) : json();
    data["properties"] = ToJson(explanation)["properties"];
    return Page(kPage, data);
}

std::string SummaryPage(const Summary& summary) {
    return Page(kMatrixPage, ToJson(summary));
}

std::string ComparisonPage(const Comparison& comparison) {
    json data = ToJson(comparison);
    data["failure"] = comparison.failure ? json(FailureText(*comparison.failure)) : json();
    json warnings = json::array();
    for (const MissingValue& missing : comparison.missing) {
        warnings.push_back(WarningText(missing));
    }
    data["missing"] = std::move(warnings);
    data.update(CountedJson(comparison));
    return Page(kComparePage, data);
}

}  // namespace extprop
