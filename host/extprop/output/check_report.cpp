#include "output/check_report.h"

#include <map>
#include <set>
#include <utility>

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

std::vector<UnmetGroup> GroupsOf(const CheckResult& result) {
    std::vector<SummaryVariant> all;
    std::map<Variant, size_t, VariantOrder> numbers;
    std::map<std::string, std::set<size_t>> asked;  // by the name of the case
    for (const CheckedCase& checked : result.cases) {
        const auto [number, is_new] = numbers.try_emplace(checked.variant, numbers.size());
        if (is_new) all.push_back({checked.variant, {}, std::nullopt});
        asked[CaseName(checked)].insert(number->second);
    }
    struct Members {
        const CheckedCase* checked;
        const UnmetExpectation* first;
        std::vector<size_t> variants;
    };
    std::vector<Members> members;
    std::map<std::vector<std::string>, size_t> known;
    for (const CheckedCase& checked : result.cases) {
        for (const UnmetExpectation& unmet : checked.unmet) {
            const auto [place, is_new] =
                    known.try_emplace({CaseName(checked), UnmetText(unmet)}, members.size());
            if (is_new) members.push_back({&checked, &unmet, {}});
            members[place->second].variants.push_back(numbers.at(checked.variant));
        }
    }
    const VariantsNamer namer(all);
    std::vector<UnmetGroup> groups;
    for (const Members& each : members) {
        const std::string name = CaseName(*each.checked);
        const size_t count = each.variants.size();
        const bool is_all = count > 1 && count == asked.at(name).size();
        if (result.phone) {
            groups.push_back({name, each.first, count, SubjectText(result, each.checked->variant)});
            continue;
        }
        groups.push_back({name, each.first, count,
                          is_all ? "all " + Count(count, "variant", "variants")
                                 : namer.Text(each.variants)});
    }
    return groups;
}

std::string CheckText(const CheckResult& result) {
    Text text;
    size_t unmet = 0;
    std::string last;
    for (const UnmetGroup& group : GroupsOf(result)) {
        if (group.name != last) text << group.name << "\n";
        last = group.name;
        text << "  " << group.variants << ": " << UnmetText(*group.unmet) << "\n";
        unmet += group.count;
    }
    text << SubjectsText(result) << ", " << Count(result.checked, "property", "properties")
         << " checked, "
         << (unmet == 0 ? "all as expected" : std::to_string(unmet) + " not as expected") << "\n";
    return text.string();
}

}  // namespace extprop
