#include "output/code_quality.h"

#include <nlohmann/json.hpp>

#include "printable.h"

namespace extprop {

nlohmann::json CodeQualityReport(const std::vector<Finding>& findings, const SourceRoot& root) {
    nlohmann::json report = nlohmann::json::array();
    for (const Finding& finding : findings) {
        const std::string path = root.PathTo(finding.path);
        report.push_back({{"description", Printable(MessageText(finding))},
                          {"check_name", finding.identifier},
                          // With the path, since several devices in a work tree may have the same
                          // finding.
                          {"fingerprint", Fingerprint({path, finding.fingerprint})},
                          {"severity", finding.severity == Severity::kError ? "major" : "minor"},
                          {"location", {{"path", path}, {"lines", {{"begin", finding.line}}}}}});
    }
    return report;
}

}  // namespace extprop
