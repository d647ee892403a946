// Allowances: comments that allow findings, "# extprop: allow RULE[, RULE]: reason".

#include <algorithm>
#include <set>

#include <android-base/strings.h>

#include "input_error.h"
#include "lint/rules.h"
#include "nearest.h"
#include "printable.h"

namespace extprop {

namespace {

using android::base::ConsumePrefix;
using android::base::Split;
using android::base::Trim;

constexpr const Rule& kUnusedAllowance = RuleNamed("unused-allowance");

constexpr char kForm[] = "expected '# extprop: allow RULE[, RULE]: reason'";

struct Allowance {
    std::string path;
    int line;
    int about = 0;  // the line that it is about; 0 for the whole file
    std::set<std::string> identifiers = {};
    std::set<std::string> used = {};
};

// Returns why the rule cannot be allowed, or "".
std::string WhyRefused(const std::string& identifier) {
    constexpr size_t kNear = 3;
    std::vector<std::string> known;
    for (const Rule& rule : kRules) known.emplace_back(rule.identifier);
    if (identifier == kUnusedAllowance.identifier) {
        return "a comment that allows nothing cannot be allowed; delete it";
    }
    if (std::find(known.begin(), known.end(), identifier) != known.end()) return "";
    return "unknown rule " + QuotedShort(identifier) +
           Suggestion(Nearest(identifier, known, kNear));
}

// Parses what follows "# extprop:". Returns what is wrong with it, or "".
std::string Parse(std::string_view text, std::set<std::string>* identifiers) {
    const size_t colon = text.find(':');
    if (!ConsumePrefix(&text, "allow ") || colon == std::string_view::npos) return kForm;
    const std::string rules(text.substr(0, text.find(':')));
    const std::string reason = Trim(std::string(text.substr(text.find(':') + 1)));
    for (const std::string& word : Split(rules, ",")) {
        const std::string identifier = Trim(word);
        std::string why = WhyRefused(identifier);
        if (!why.empty()) return why;
        identifiers->insert(identifier);
    }
    return reason.empty() ? std::string("the reason is missing; ") + kForm : "";
}

// Adds the file's allowances, and messages on those that are wrong.
void ReadAllowances(const PropertyFile& file, const std::string& name,
                    std::vector<Allowance>* allowances, std::vector<std::string>* errors) {
    // Several allowances in a row are about the line below them.
    std::vector<Allowance> waiting;
    int number = 0;
    for (const std::string& line : Split(file.content, "\n")) {
        ++number;
        const std::string trimmed = Trim(line);
        std::string_view text = trimmed;
        const bool is_comment = ConsumePrefix(&text, "#");
        const std::string comment = Trim(std::string(text));
        text = comment;
        if (!is_comment || !ConsumePrefix(&text, "extprop:")) {
            for (Allowance& allowance : waiting) {
                allowance.about = number;
                allowances->push_back(std::move(allowance));
            }
            waiting.clear();
            continue;
        }
        Allowance allowance{file.path, number};
        const std::string wrong = Parse(Trim(std::string(text)), &allowance.identifiers);
        if (!wrong.empty()) {
            errors->push_back(name + ":" + std::to_string(number) + ": " + wrong);
        } else if (number == 1) {
            allowances->push_back(std::move(allowance));
        } else {
            waiting.push_back(std::move(allowance));
        }
    }
    for (Allowance& allowance : waiting) {
        allowance.about = number + 1;  // no line is there
        allowances->push_back(std::move(allowance));
    }
}

}  // namespace

void ApplyAllowances(const PropertyFiles& files, Findings* findings) {
    std::vector<Allowance> allowances;
    std::vector<std::string> errors;
    for (const auto& [path, file] : files) {
        ReadAllowances(file, findings->Named(path), &allowances, &errors);
    }
    if (!errors.empty()) throw InputError(errors);

    findings->Remove([&](const Finding& finding) {
        bool is_allowed = false;
        for (Allowance& allowance : allowances) {
            const bool is_there =
                    allowance.about == 0 || (finding.is_of_line && finding.line == allowance.about);
            if (allowance.path != finding.path || !is_there) continue;
            if (allowance.identifiers.count(finding.identifier) == 0) continue;
            allowance.used.insert(finding.identifier);
            is_allowed = true;
        }
        return is_allowed;
    });
    // Unused allowances may be for what could not be checked.
    if (findings->Has(kNotChecked)) return;
    for (const Allowance& allowance : allowances) {
        std::vector<std::string> unused;
        std::set_difference(allowance.identifiers.begin(), allowance.identifiers.end(),
                            allowance.used.begin(), allowance.used.end(),
                            std::back_inserter(unused));
        if (unused.empty()) continue;
        findings->Add(kUnusedAllowance, allowance.path, allowance.line,
                      "there is no finding of " + android::base::Join(unused, ", ") +
                              (allowance.about == 0 ? " in this file" : " in the line below") +
                              ", so this comment allows nothing");
    }
}

}  // namespace extprop
