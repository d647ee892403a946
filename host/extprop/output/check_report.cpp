#include "output/check_report.h"

#include <nlohmann/json.hpp>

#include "output/text.h"
#include "printable.h"

namespace extprop {

namespace {

std::string CaseName(const CheckedCase& checked) {
    const std::string place = checked.file + ":" + std::to_string(checked.line);
    return checked.expectation.empty() ? place : place + " (" + checked.expectation + ")";
}

}  // namespace

std::string SubjectText(const CheckResult& result, const Variant& variant) {
    return (result.phone ? *result.phone + ": " : "") + VariantText(variant);
}

std::string SubjectsText(const CheckResult& result) {
    return result.phone ? *result.phone : Count(result.variants, "variant", "variants");
}

std::string UnmetText(const UnmetExpectation& unmet) {
    if (unmet.failure) return FailureText(*unmet.failure);
    if (unmet.property.empty()) return "expected " + unmet.expected;
    std::string text = unmet.property + " is " +
                       (unmet.value ? "'" + *unmet.value + "'" : "unset") + ", expected " +
                       unmet.expected;
    if (unmet.origin) text += "; it comes from " + unmet.origin->at("text").get<std::string>();
    return text;
}

std::string CheckText(const CheckResult& result) {
    Text text;
    size_t unmet = 0;
    for (const CheckedCase& checked : result.cases) {
        if (checked.unmet.empty()) continue;
        text << SubjectText(result, checked.variant) << ": " << CaseName(checked) << "\n";
        for (const UnmetExpectation& each : checked.unmet) text << "  " << UnmetText(each) << "\n";
        unmet += checked.unmet.size();
    }
    text << SubjectsText(result) << ", " << Count(result.checked, "property", "properties")
         << " checked, "
         << (unmet == 0 ? "all as expected" : std::to_string(unmet) + " not as expected") << "\n";
    return text.string();
}

}  // namespace extprop
