#include "output/sarif.h"

#include <algorithm>
#include <iterator>

#include <android-base/strings.h>
#include <nlohmann/json.hpp>

#include "lint/rule_table.h"
#include "printable.h"
#include "product.h"

namespace extprop {

namespace {

using nlohmann::json;

// How many results of a run, and places of a result, services accept.
constexpr size_t kMostResults = 5000;
constexpr size_t kMostPlaces = 100;

// The names of the directories to which the files' paths are relative.
constexpr char kWorkTree[] = "%SRCROOT%";
constexpr char kDevice[] = "DEVICE";

json RuleObject(const Rule& rule) {
    return {{"id", rule.identifier},
            {"shortDescription", {{"text", rule.finds + std::string(".")}}},
            {"fullDescription", {{"text", std::string(rule.finds) + ". " + rule.why + "."}}},
            {"helpUri", std::string(kDocs) + "/lint.md#" + rule.identifier},
            {"help", {{"text", RuleText(rule)}, {"markdown", RuleText(rule)}}},
            {"defaultConfiguration", {{"level", SeverityName(rule.severity)}}}};
}

// Escapes what would become a link, since the text comes from a device.
std::string PlainText(const std::string& text) {
    return android::base::StringReplace(Printable(text), "](", "\\](", true);
}

class ResultWriter {
  public:
    explicit ResultWriter(const SourceRoot& root) : root_(root) {}

    json Result(const Finding& finding) const {
        const Rule& rule = RuleNamed(finding.identifier);
        json result = {{"ruleId", finding.identifier},
                       {"ruleIndex", &rule - std::begin(kRules)},
                       {"level", SeverityName(finding.severity)},
                       {"message", {{"text", PlainText(MessageText(finding))}}},
                       {"partialFingerprints", {{"primaryLocationLineHash", finding.fingerprint}}},
                       {"locations", json::array({Location(finding.path, finding.line)})}};
        if (!finding.text.empty()) {
            result["locations"][0]["physicalLocation"]["region"]["snippet"] = {
                    {"text", finding.text}};
        }
        if (finding.others.empty()) return result;
        result["occurrenceCount"] = finding.others.size() + 1;
        json& related = result["relatedLocations"] = json::array();
        for (const LinePlace& other : finding.others) {
            if (related.size() == kMostPlaces) break;
            related.push_back(Location(other.path, other.line));
            related.back()["id"] = related.size();
            related.back()["message"] = {{"text", "For the same reason"}};
        }
        return result;
    }

  private:
    json Location(const std::string& path, int line) const {
        return {{"physicalLocation",
                 {{"artifactLocation",
                   {{"uri", UriOf(root_.PathTo(path))},
                    {"uriBaseId", root_.is_device() ? kDevice : kWorkTree}}},
                  {"region", {{"startLine", line}}}}}};
    }

    const SourceRoot& root_;
};

json BaseIds(const SourceRoot& root) {
    if (!root.is_device()) {
        return {{kWorkTree, {{"description", {{"text", "The root of the work tree"}}}}}};
    }
    return {{kDevice,
             {{"uri", "file://" + UriOf(root.directory()) + "/"},
              {"description",
               {{"text",
                 "The device directory, which lies in no work tree; --source-root names "
                 "another root"}}}}}};
}

json Invocation(const std::vector<Finding>& left_out) {
    json invocation = {{"executionSuccessful", true}};
    if (left_out.empty()) return invocation;
    const auto errors = static_cast<size_t>(std::count_if(
            left_out.begin(), left_out.end(),
            [](const Finding& finding) { return finding.severity == Severity::kError; }));
    invocation["toolExecutionNotifications"] = {
            {{"level", "warning"},
             {"message",
              {{"text",
                "There are more findings than services take: " + Count(errors, "error", "errors") +
                        " and " + Count(left_out.size() - errors, "warning", "warnings") +
                        " are left out here; extprop lint prints all"}}}}};
    return invocation;
}

}  // namespace

json SarifLog(const std::vector<Finding>& findings, const SourceRoot& root,
              const std::string& category) {
    std::vector<Finding> listed = findings;
    std::vector<Finding> left_out;
    if (listed.size() > kMostResults) {
        std::stable_partition(listed.begin(), listed.end(), [](const Finding& finding) {
            return finding.severity == Severity::kError;
        });
        left_out.assign(listed.begin() + kMostResults, listed.end());
        listed.resize(kMostResults);
    }
    json rules = json::array();
    for (const Rule& rule : kRules) rules.push_back(RuleObject(rule));
    json results = json::array();
    const ResultWriter writer(root);
    for (const Finding& finding : listed) results.push_back(writer.Result(finding));

    json run = {{"tool",
                 {{"driver",
                   {{"name", "extprop"},
                    {"version", kVersion},
                    {"semanticVersion", kVersion},
                    {"informationUri", kDocs},
                    {"rules", rules}}}}},
                {"originalUriBaseIds", BaseIds(root)},
                {"invocations", json::array({Invocation(left_out)})},
                {"columnKind", "utf16CodeUnits"},
                {"results", results}};
    if (!category.empty()) {
        // Services take what follows the last slash as the name of a single run.
        run["automationDetails"] = {{"id", category + (category.back() == '/' ? "" : "/")}};
    }
    return {{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
            {"version", "2.1.0"},
            {"runs", json::array({run})}};
}

}  // namespace extprop
