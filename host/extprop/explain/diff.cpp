#include "explain/diff.h"

#include "explain/explain.h"
#include "explain/trace.h"

namespace extprop {

using nlohmann::json;

namespace {

constexpr int kDifferenceFormat = 1;

json Winner(const json& origins, const std::string& name) {
    for (const json& origin : origins.value(name, json::array())) {
        if (origin["fate"] == "wins") return origin;
    }
    return nullptr;
}

json Side(const json& report, const json& origins, const std::string& name) {
    if (!report["properties"].contains(name)) return nullptr;
    return {{"value", report["properties"][name]}, {"origin", Winner(origins, name)}};
}

std::string SideText(const json& side) {
    std::string text = side["value"].get<std::string>();
    if (!side["origin"].is_null()) text += "  (" + OriginText(side["origin"]) + ")";
    return text + "\n";
}

}  // namespace

json Diff(const json& a, const json& b) {
    const json origins_a = TraceOrigins(a);
    const json origins_b = TraceOrigins(b);
    json names = a["properties"];
    names.update(b["properties"]);

    json difference = {{"format", kDifferenceFormat},
                       {"added", json::array()},
                       {"removed", json::array()},
                       {"changed", json::array()}};
    for (const auto& [name, value] : names.items()) {
        const json side_a = Side(a, origins_a, name);
        const json side_b = Side(b, origins_b, name);
        const char* kind = side_a.is_null() ? "added" : side_b.is_null() ? "removed" : "changed";
        if (!side_a.is_null() && !side_b.is_null() && side_a["value"] == side_b["value"]) continue;
        difference[kind].push_back({{"name", name}, {"a", side_a}, {"b", side_b}});
    }
    return difference;
}

bool IsEmpty(const json& difference) {
    return difference["added"].empty() && difference["removed"].empty() &&
           difference["changed"].empty();
}

std::string DifferenceText(const json& difference) {
    std::string text;
    for (const json& property : difference["removed"]) {
        text += "- " + property["name"].get<std::string>() + "=" + SideText(property["a"]);
    }
    for (const json& property : difference["added"]) {
        text += "+ " + property["name"].get<std::string>() + "=" + SideText(property["b"]);
    }
    for (const json& property : difference["changed"]) {
        text += "~ " + property["name"].get<std::string>() + "\n    a: " + SideText(property["a"]) +
                "    b: " + SideText(property["b"]);
    }
    return text;
}

}  // namespace extprop
