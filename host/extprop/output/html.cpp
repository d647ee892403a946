#include "output/html.h"

#include <string_view>

#include <android-base/strings.h>

#include "page.h"
#include "output/report_text.h"

namespace extprop {

using nlohmann::json;

namespace {

// Where page.html has its data.
constexpr std::string_view kDataMark = "{{data}}";

// JSON has "<" in strings only; escaped, no text of theirs can end the element it stands in.
std::string ScriptText(const json& data) {
    const std::string text = data.dump(-1, ' ', false, json::error_handler_t::replace);
    return android::base::StringReplace(text, "<", "\\u003c", true);
}

}  // namespace

std::string HtmlPage(const json& report, const json& explanation) {
    json data = {{"device", report["device"]},
                 {"notes", report["notes"]},
                 {"failure", report["failure"].is_null() ? json() : json(FailureText(report))},
                 {"properties", explanation["properties"]},
                 {"steps", report["steps"]}};
    for (json& step : data["steps"]) {
        for (json& event : step["events"]) event.erase("content");
    }
    std::string page = kPage;
    return page.replace(page.find(kDataMark), kDataMark.size(), ScriptText(data));
}

}  // namespace extprop
