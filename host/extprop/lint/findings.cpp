// The order, fingerprints and texts of findings.

#include <inttypes.h>
#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

#include <android-base/strings.h>

#include "budget.h"
#include "lint/rules.h"
#include "printable.h"

namespace extprop {

namespace {

// For these rules, findings with the same message have one reason even in different files. For all
// others only those in the same file have.
constexpr std::string_view kAcrossFiles[] = {"missing-import", "missing-variant", "unset-reference",
                                             "late-reference", "symbolic-link"};

std::vector<std::string> TextsOf(const PropertyFiles& files, const std::string& path) {
    const auto file = files.find(path);
    if (file == files.end()) return {};
    return android::base::Split(file->second.content, "\n");
}

}  // namespace

void Findings::Add(const Rule& rule, const std::string& path, int line,
                   const std::string& message) {
    has_more_ |= findings_.size() == limits::kFindings;
    if (has_more_) return;
    Finding finding{device_ + path,  std::max(line, 1), rule.severity,
                    rule.identifier, message,           files_.ImageOf(path)};
    finding.path = path;
    finding.is_of_line = line > 0;
    findings_.push_back(std::move(finding));
}

void Findings::Remove(const std::function<bool(const Finding&)>& allows) {
    findings_.erase(std::remove_if(findings_.begin(), findings_.end(), allows), findings_.end());
}

bool Findings::Has(const Rule& rule) const {
    return std::any_of(findings_.begin(), findings_.end(), [&](const Finding& finding) {
        return finding.identifier == rule.identifier;
    });
}

bool Findings::Has(const Rule& rule, const std::string& path) const {
    return std::any_of(findings_.begin(), findings_.end(), [&](const Finding& finding) {
        return finding.identifier == rule.identifier && finding.path == path;
    });
}

std::vector<Finding> Findings::Take(const PropertyFiles& files) {
    if (std::exchange(has_more_, false)) {
        if (findings_.size() == limits::kFindings) findings_.pop_back();
        Add(RuleNamed("not-checked"), "",
            "there are more findings than the " + std::to_string(limits::kFindings) +
                    " that are reported");
    }
    std::stable_sort(findings_.begin(), findings_.end(), [](const Finding& a, const Finding& b) {
        return std::tie(a.file, a.line) < std::tie(b.file, b.line);
    });
    const std::string* path = nullptr;
    std::vector<std::string> lines;
    std::map<std::string, int> equal;
    for (Finding& finding : findings_) {
        if (path == nullptr || *path != finding.path) lines = TextsOf(files, finding.path);
        path = &finding.path;
        const auto index = static_cast<size_t>(finding.line) - 1;
        if (finding.is_of_line && index < lines.size()) {
            finding.text = android::base::Trim(lines[index]);
        }
        const std::string hash = Fingerprint({finding.identifier, finding.path, finding.text});
        finding.fingerprint = hash + ":" + std::to_string(++equal[hash]);
    }
    return std::move(findings_);
}

std::vector<Finding> Grouped(const std::vector<Finding>& findings) {
    std::vector<Finding> grouped;
    std::map<std::tuple<std::string, std::string, std::string>, size_t> places;
    for (const Finding& finding : findings) {
        const bool is_across_files = std::find(std::begin(kAcrossFiles), std::end(kAcrossFiles),
                                               finding.identifier) != std::end(kAcrossFiles);
        const std::string file = is_across_files ? "" : finding.path;
        const auto [place, is_first] =
                places.try_emplace({finding.identifier, finding.message, file}, grouped.size());
        if (is_first) {
            grouped.push_back(finding);
        } else {
            grouped[place->second].others.push_back({finding.file, finding.line, finding.path});
        }
    }
    return grouped;
}

std::string Fingerprint(const std::vector<std::string_view>& texts) {
    uint64_t hash = 0xcbf29ce484222325;  // FNV-1a
    const auto add = [&](char c) { hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3; };
    for (const std::string_view text : texts) {
        for (const char c : text) add(c);
        add('\0');
    }
    char digits[17];
    snprintf(digits, sizeof(digits), "%016" PRIx64, hash);
    return digits;
}

const char* SeverityName(Severity severity) {
    return severity == Severity::kError ? "error" : "warning";
}

std::string MessageText(const Finding& finding) {
    constexpr size_t kNamed = 20;
    std::string text = finding.message;
    const std::vector<LinePlace>& others = finding.others;
    for (size_t i = 0; i < std::min(others.size(), kNamed); ++i) {
        text += i == 0 ? " (" + std::to_string(others.size() + 1) + " times; also in " : ", ";
        text += others[i].path == finding.path ? "line " : others[i].path + ":";
        text += std::to_string(others[i].line);
    }
    if (others.size() > kNamed) text += " and " + std::to_string(others.size() - kNamed) + " more";
    if (!others.empty()) text += ")";
    if (finding.image) text += " (" + Name(*finding.image) + ")";
    return text;
}

std::string FindingText(const Finding& finding) {
    Text text;
    text << finding.file << ":" << finding.line << ": " << SeverityName(finding.severity) << ": "
         << MessageText(finding) << " [" << finding.identifier << "]";
    return text.string();
}

}  // namespace extprop
