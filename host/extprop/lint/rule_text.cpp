#include <android-base/strings.h>

#include "lint/rule_table.h"

namespace extprop {

namespace {

std::string Example(const char* title, const char* files) {
    return std::string("\n") + title + ":\n\n    " +
           android::base::StringReplace(files, "\n", "\n    ", true) + "\n";
}

}  // namespace

std::string RuleText(const Rule& rule) {
    return std::string(rule.finds) + ".\n\nWhy it hurts: " + rule.why +
           ".\n\nHow to mend it: " + rule.mend + ".\n" + Example("Bad", rule.bad) +
           Example("Good", rule.good);
}

std::string RuleSection(const Rule& rule) {
    return std::string("## ") + rule.identifier + "\n\n" + SeverityName(rule.severity) + ": " +
           RuleText(rule);
}

}  // namespace extprop
