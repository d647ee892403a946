#include "explain/explain.h"

#include <fnmatch.h>

#include <algorithm>

#include "input_error.h"
#include "boot/steps.h"
#include "explain/trace.h"

namespace extprop {

using nlohmann::json;

namespace {

constexpr int kExplanationFormat = 1;

struct Style {
    const char* fate;
    const char* colour;
};

constexpr Style kStyles[] = {
        {"wins", "\033[1;32m"},
        {"not loaded", "\033[33m"},
};
constexpr char kFaint[] = "\033[2m";
constexpr char kBold[] = "\033[1m";
constexpr char kPlain[] = "\033[0m";

const char* ColourOf(const std::string& fate) {
    for (const Style& style : kStyles) {
        if (fate == style.fate) return style.colour;
    }
    return kFaint;
}

std::string Coloured(const std::string& text, const char* colour, bool colours) {
    return colours ? colour + text + kPlain : text;
}

}  // namespace

json Explain(const json& report, const std::vector<std::string>& patterns) {
    const json origins = TraceOrigins(report);
    json explained = json::array();
    std::vector<bool> matched(patterns.size());
    for (const auto& [name, places] : origins.items()) {
        bool wanted = false;
        for (size_t i = 0; i < patterns.size(); ++i) {
            if (fnmatch(patterns[i].c_str(), name.c_str(), 0) == 0) matched[i] = wanted = true;
        }
        if (!wanted) continue;
        const json& properties = report["properties"];
        explained.push_back({{"name", name},
                             {"value", properties.contains(name) ? properties[name] : json()},
                             {"origins", places}});
    }
    for (size_t i = 0; i < patterns.size(); ++i) {
        if (matched[i] || patterns[i] == kEverything) continue;
        throw InputError("no property file or step has '" + patterns[i] + "'");
    }
    return {{"format", kExplanationFormat},
            {"device", report["device"]},
            {"properties", std::move(explained)}};
}

std::string OriginText(const json& origin) {
    std::string text;
    if (origin.contains("step")) text += origin["step"].get<std::string>() + " ";
    if (origin.value("boot", 1) != 1) text += "(boot " + origin["boot"].dump() + ") ";
    const std::string kind = origin["kind"];
    if (kind == "given") return text + "given";
    if (kind == "request") return text + "requested by the installing service";
    if (kind == "file") {
        text += origin["file"].get<std::string>() + ":" + origin["line"].dump();
        if (origin.contains("imported_by") && !origin["imported_by"].is_null()) {
            text += " (imported by " + origin["imported_by"].get<std::string>() + ")";
        }
        return text;
    }
    if (origin["operations"].empty()) return text + "set by the library's bind thread";
    const char* separator = "derived by ";
    for (const json& operation : origin["operations"]) {
        text += separator + operation.get<std::string>();
        separator = " < ";
    }
    return text;
}

std::string ExplanationText(const json& explanation, bool colours) {
    std::string text;
    for (const json& property : explanation["properties"]) {
        const json& value = property["value"];
        text += Coloured(property["name"], kBold, colours) +
                (value.is_null() ? " is not set" : "=" + value.get<std::string>()) + "\n";
        size_t width = 0;
        for (const json& origin : property["origins"]) {
            width = std::max(width, OriginText(origin).size());
        }
        for (const json& origin : property["origins"]) {
            const std::string fate = origin["fate"];
            std::string place = OriginText(origin);
            place.resize(width, ' ');
            std::string line = (fate == "wins" ? "  * " : "    ") + place + "  " +
                               origin["value"].get<std::string>();
            if (origin.contains("condition")) {
                line += "  [" + fate + "; it takes " + origin["condition"].get<std::string>() + "]";
            } else if (fate != "wins") {
                line += "  [" + fate + "]";
            }
            text += Coloured(line, ColourOf(fate), colours) + "\n";
        }
    }
    return text;
}

}  // namespace extprop
