#include "output/sarif.h"

#include <ctype.h>

#include <iterator>

#include "lint/rule_table.h"
#include "output/printable.h"

namespace extprop {

namespace {

using nlohmann::json;

const char* LevelOf(Severity severity) {
    return severity == Severity::kError ? "error" : "warning";
}

// Returns the path as a relative reference: any byte that is no plain letter stands as "%C3".
std::string UriOf(const std::string& path) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    constexpr std::string_view kPlain = "/-._~";
    std::string uri;
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte < 0x80 && isalnum(byte) != 0) || kPlain.find(c) != std::string_view::npos) {
            uri += c;
        } else {
            uri += {'%', kDigits[byte / 16], kDigits[byte % 16]};
        }
    }
    return uri;
}

json RuleObject(const Rule& rule) {
    const std::string help = std::string(rule.why) + ". " + rule.mend + ".";
    return {{"id", rule.identifier},
            {"shortDescription", {{"text", rule.finds}}},
            {"help", {{"text", help}, {"markdown", help}}},
            {"defaultConfiguration", {{"level", LevelOf(rule.severity)}}}};
}

json ResultObject(const std::string& device, const Finding& finding) {
    // The device itself is the directory that all names start from.
    std::string path = finding.file.substr(device.size());
    path = path.empty() ? "." : path.substr(1);
    return {{"ruleId", finding.identifier},
            {"level", LevelOf(finding.severity)},
            {"message", {{"text", Printable(finding.message)}}},
            {"locations",
             {{{"physicalLocation",
                {{"artifactLocation", {{"uri", UriOf(path)}}},
                 {"region", {{"startLine", finding.line}}}}}}}}};
}

}  // namespace

json SarifLog(const std::string& device, const std::vector<Finding>& findings) {
    json rules = json::array();
    for (const Rule& rule : kRules) rules.push_back(RuleObject(rule));
    json results = json::array();
    const std::string root = device.substr(0, device.find_last_not_of('/') + 1);
    for (const Finding& finding : findings) results.push_back(ResultObject(root, finding));
    return {{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
            {"version", "2.1.0"},
            {"runs",
             {{{"tool", {{"driver", {{"name", "extprop"}, {"rules", rules}}}}},
               {"results", results}}}}};
}

}  // namespace extprop
