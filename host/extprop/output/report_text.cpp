#include "output/report_text.h"

#include <sstream>

#include "device/property_text.h"

namespace extprop {

using nlohmann::json;

namespace {

std::string Text(const json& value) {
    return value.get<std::string>();
}

std::string Count(size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

void PrintChanges(const json& event, std::ostream& out) {
    out << Count(event["properties"].size(), "property", "properties");
    if (event["changes"].empty() && !event["properties"].empty()) out << ", all set already";
    out << "\n";
    for (const json& change : event["changes"]) {
        const bool is_new = change["previous"].is_null();
        out << (is_new ? "    + " : "    ~ ") << Text(change["name"]) << "="
            << Text(change["value"]);
        if (!is_new) out << "  (was " << Text(change["previous"]) << ")";
        out << "\n";
    }
}

void PrintLog(const json& event, bool verbose, std::ostream& out) {
    const std::string severity = Text(event["severity"]);
    if (!verbose && (severity == "VERBOSE" || severity == "DEBUG" || severity == "INFO")) return;
    out << "  " << severity << " " << Text(event["file"]) << ":" << event["line"] << ": "
        << Text(event["message"]) << "\n";
}

void PrintMount(const json& event, std::ostream& out) {
    out << "  mount " << Text(event["source"]) << " on " << Text(event["target"]) << " (";
    const char* separator = "";
    for (const json& flag : event["flags"]) {
        out << separator << Text(flag);
        separator = "|";
    }
    out << "): " << (event["error"].is_null() ? "done" : Text(event["error"])) << "\n";
}

void PrintEvent(const json& event, bool verbose, std::ostream& out) {
    const std::string kind = Text(event["event"]);
    if (kind == "map") {
        out << "  map: ";
        PrintChanges(event, out);
    } else if (kind == "callback") {
        out << "  callback mode " << event["mode"] << ": ";
        PrintChanges(event, out);
    } else if (kind == "log") {
        PrintLog(event, verbose, out);
    } else if (kind == "mount") {
        PrintMount(event, out);
    } else if (kind == "property") {
        out << "  property_set " << Text(event["name"]) << "=" << Text(event["value"]) << "\n";
    } else if (kind == "restorecon") {
        out << "  restorecon " << Text(event["path"]) << (event["result"] == 0 ? "" : ": failed")
            << "\n";
    } else if (kind == "logo") {
        out << "  logo: " << event["bytes"] << " bytes of " << Text(event["source"])
            << " written to the splash partition\n";
    } else if (kind == "request") {
        out << "  request " << Text(event["value"]) << "\n";
    } else if (kind == "unacknowledged") {
        out << "  request " << Text(event["value"]) << ": not acknowledged\n";
    } else if (kind == "open" && verbose) {
        out << "  open for " << Text(event["for"]) << " " << Text(event["path"]) << "\n";
    }
}

}  // namespace

std::string ReportText(const json& report, bool verbose) {
    std::ostringstream out;
    for (const json& step : report["steps"]) {
        out << "== " << Text(step["step"]);
        if (step["boot"] != 1) out << " (boot " << step["boot"] << ")";
        out << "\n";
        for (const json& event : step["events"]) PrintEvent(event, verbose, out);
        for (const json& file : step["files"]) {
            out << "  file " << Text(file["change"]) << ": " << Text(file["path"]) << "\n";
        }
        out << "\n";
    }
    if (report["failure"].is_null()) {
        out << "== properties\n" << PropertyListing(report["properties"].get<PropertyMap>());
    }
    return out.str();
}

std::string FailureText(const json& report) {
    const json& failure = report["failure"];
    std::string text = "the library ";
    if (failure["timed_out"]) {
        text += "did not come back in time";
    } else if (failure["signal"].is_null()) {
        text += "ended the process";
    } else {
        text += "crashed with " + Text(failure["signal"]);
    }
    text += " in step " + Text(failure["step"]);
    if (!failure["last_file"].is_null()) text += ", last loading " + Text(failure["last_file"]);
    return text;
}

}  // namespace extprop
