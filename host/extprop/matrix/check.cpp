#include "matrix/check.h"

#include <algorithm>
#include <chrono>
#include <set>

#include <re2/re2.h>
#include <nlohmann/json.hpp>

#include "budget.h"
#include "device/device_tree.h"
#include "device/property_text.h"
#include "input_error.h"
#include "nearest.h"

namespace extprop {

namespace {

constexpr size_t kNearExpected = 3;

// Returns the path of "/odm/build.prop:3" or "/odm/build.prop".
std::string WithoutLine(const std::string& place) {
    const size_t colon = place.rfind(':');
    const bool has_line = colon != std::string::npos && colon + 1 < place.size() &&
                          place.find_first_not_of("0123456789", colon + 1) == std::string::npos;
    return has_line ? place.substr(0, colon) : place;
}

struct ExpectedVariants {
    std::vector<Variant> variants;
    std::vector<std::pair<int, std::string>> missing;  // axes and values not on the device
};

// Returns the variants that the expectation concerns.
ExpectedVariants VariantsOf(const Expectation& expectation, const VariantSpace& space) {
    if (expectation.all_variants) return {ChosenVariants(space, {}), {}};
    std::set<Variant, VariantOrder> variants;
    ExpectedVariants expected;
    for (const VariantSelection& selection : expectation.selections) {
        std::vector<Variant> selected = {{}};
        for (int axis = 0; axis < kAxisCount; ++axis) {
            const std::set<std::string>& known = space.values[axis];
            if (selection.values[axis].empty()) continue;
            std::set<std::string> values;
            for (const std::string& value : selection.values[axis]) {
                if (value == kAnyValue && !known.empty()) {
                    values.insert(known.begin(), known.end());
                } else if (value == kAsItIs || known.count(value) != 0) {
                    values.insert(value);
                } else {
                    expected.missing.emplace_back(axis, value);
                }
            }
            CheckCount(selected.size(), values.size());
            std::vector<Variant> longer;
            for (const Variant& variant : selected) {
                for (const std::string& value : values) {
                    longer.push_back(variant);
                    if (value != kAsItIs) longer.back()[axis] = value;
                }
            }
            selected = std::move(longer);
        }
        variants.insert(selected.begin(), selected.end());
        CheckCount(variants.size(), 1);
    }
    expected.variants = {variants.begin(), variants.end()};
    return expected;
}

// Returns whether the selection includes the phone's variant.
bool Selects(const VariantSelection& selection, const PhoneVariant& phone) {
    for (int axis = 0; axis < kAxisCount; ++axis) {
        const bool is_missing =
                std::any_of(phone.missing.begin(), phone.missing.end(),
                            [&](const MissingValue& missing) { return missing.axis == axis; });
        const bool is_as_device = !phone.variant[axis] && !is_missing;
        const std::vector<std::string>& values = selection.values[axis];
        const auto is_one = [&](const std::string& value) {
            if (value == kAsItIs) return is_as_device;
            return phone.values[axis] && (value == kAnyValue || value == *phone.values[axis]);
        };
        const bool fits =
                values.empty() ? is_as_device : std::any_of(values.begin(), values.end(), is_one);
        if (!fits) return false;
    }
    return true;
}

// Returns whether the expectation concerns the phone's variant. One on all variants also concerns a
// phone that differs in several axes.
bool IsAbout(const Expectation& expectation, const PhoneVariant& phone) {
    return expectation.all_variants ||
           std::any_of(
                   expectation.selections.begin(), expectation.selections.end(),
                   [&](const VariantSelection& selection) { return Selects(selection, phone); });
}

// Returns whether both have the property with the same value.
bool HaveSame(const PropertyMap& a, const PropertyMap& b, const std::string& name) {
    const auto value = ValueIn(a, name);
    return value && value == ValueIn(b, name);
}

bool Meets(const std::optional<std::string>& value, const Expected& expected) {
    switch (expected.kind) {
        case Expected::kEquals:
            return value == expected.text;
        case Expected::kMatches:
            return value && re2::RE2::FullMatch(*value, *expected.pattern);
        case Expected::kSet:
        case Expected::kFrom:  // the origin is checked later
            return value.has_value();
        case Expected::kUnset:
            return !value;
    }
    return false;
}

bool IsFrom(const OriginDocument& origin, const std::string& place) {
    if (origin == nullptr || origin->at("kind") != "file") return false;
    const std::string line = ":" + std::to_string(origin->at("line").get<int>());
    for (const char* field : {"file", "source"}) {
        if (!origin->at(field).is_string()) continue;
        const std::string file = origin->at(field);
        if (place == file || place == file + line) return true;
    }
    return false;
}

}  // namespace

Checker::Checker(const Expectations& expectations, Matrix* matrix, const CheckedPhone* phone)
        : expectations_(expectations), matrix_(matrix), phone_(phone) {
    for (const Expectation& expectation : expectations.expectations) {
        for (const auto& [name, expected] : expectation.properties) {
            if (expected.kind == Expected::kUnset) unseen_.insert(name);
        }
        if (phone_ != nullptr) {
            if (IsAbout(expectation, phone_->is)) {
                asked_[phone_->is.variant].push_back(&expectation);
            }
            continue;
        }
        const ExpectedVariants about = VariantsOf(expectation, matrix->space());
        for (const Variant& variant : about.variants) {
            Keep(expectation.name);
            asked_[variant].push_back(&expectation);
        }
        for (const auto& [axis, value] : about.missing) {
            CheckedCase missing{expectations.file, expectation.line, expectation.name, {}, {}};
            missing.variant[axis] = value;
            UnmetExpectation unmet{missing.file,    missing.line, missing.expectation,
                                   missing.variant, "",           "",
                                   std::nullopt,    nullptr,      std::nullopt};
            unmet.expected = std::string("a device that has ") +
                             (value == kAnyValue ? std::string("any ") + kAxes[axis].name
                                                 : kAxes[axis].name + (" '" + value + "'"));
            AddUnmet(unmet, &missing);
            missing_.push_back(std::move(missing));
        }
    }
    CheckCount(asked_.size(), 1);
    for (const auto& [variant, expected] : asked_) variants_.push_back(variant);
    cases_.resize(variants_.size());
}

void Checker::Add(size_t number, const Outcome& outcome) {
    PropertyMap device = matrix_->base().properties;
    for (const std::string& name : outcome.removed) device.erase(name);
    for (const auto& [name, value] : outcome.changed) device[name] = value;
    const PropertyMap& properties = phone_ == nullptr ? device : phone_->properties;

    for (auto name = unseen_.begin(); name != unseen_.end();) {
        name = properties.count(*name) != 0 ? unseen_.erase(name) : std::next(name);
    }
    std::set<std::string> named;
    for (const Expectation* expectation : asked_[variants_[number]]) {
        for (const auto& [name, expected] : expectation->properties) named.insert(name);
    }
    for (const Expectation* expectation : asked_[variants_[number]]) {
        cases_[number].push_back(
                {expectations_.file, expectation->line, expectation->name, variants_[number], {}});
        CheckedCase& checked = cases_[number].back();
        if (cases_[number].size() == 1) checked.seconds = outcome.seconds;
        UnmetExpectation unmet{checked.file,    checked.line, checked.expectation,
                               checked.variant, "",           "",
                               std::nullopt,    nullptr,      outcome.failure};
        if (outcome.failure) {
            unmet.expected = "a boot";
            checked.unmet.push_back(unmet);
            continue;
        }
        for (const auto& [name, expected] : expectation->properties) {
            ++checked_;
            unmet.property = name;
            unmet.expected = ExpectedText(expected);
            unmet.value = ValueIn(properties, name);
            if (unmet.value && expected.pattern) {
                matching_ += uint64_t{unmet.value->size()} * expected.pattern->ProgramSize();
                if (matching_ > limits::kMatching) {
                    throw InputError(expectations_.file +
                                     ": matching its regular expressions, up to that of " + name +
                                     ", takes too long; make them simpler");
                }
            }
            // The origin of a phone's value is known only if the device has the same value.
            const bool has_origin = HaveSame(device, properties, name);
            const bool has_to_come = expected.kind == Expected::kFrom;
            if (!Meets(unmet.value, expected) || (has_to_come && !has_origin)) {
                AddUnmet(unmet, &checked);
                if (has_origin) traced_[number].insert(name);
            } else if (expected.kind == Expected::kFrom) {
                traced_[number].insert(name);
                from_[number].push_back({cases_[number].size() - 1, unmet, &expected});
            }
        }
        for (const auto& [name, value] : properties) {
            if (!expectation->complete || named.count(name) != 0) continue;
            if (device.count(name) == 0) continue;  // the phone's, not the library's
            ++checked_;
            unmet.property = name;
            unmet.expected = "none, since the expectations do not name it";
            unmet.value = value;
            AddUnmet(unmet, &checked);
            if (HaveSame(device, properties, name)) traced_[number].insert(name);
        }
    }
}

void Checker::Keep(const std::string& text) {
    constexpr size_t kBesides = 512;  // of a case or unmet expectation besides its texts, roughly
    kept_ += kBesides + expectations_.file.size() + text.size();
    if (kept_ <= limits::kChecked) return;
    throw InputError(expectations_.file + ": its report has more than " +
                     std::to_string(limits::kChecked) + " bytes, which is the limit");
}

void Checker::AddUnmet(const UnmetExpectation& unmet, CheckedCase* checked) {
    Keep(unmet.expectation + unmet.property + unmet.expected + unmet.value.value_or(""));
    checked->unmet.push_back(unmet);
}

// Finds the origins of values that are not as expected, and of those expected from a file.
void Checker::FindOrigins() {
    std::vector<TraceRequest> requests;
    std::vector<size_t> numbers;
    for (const auto& [number, names] : traced_) {
        requests.push_back({variants_[number], names});
        numbers.push_back(number);
    }
    matrix_->Trace(requests, [&](size_t request, std::map<std::string, OriginDocument> origins) {
        const size_t number = numbers[request];
        for (auto& [place, unmet, expected] : from_[number]) {
            if (IsFrom(origins[unmet.property], expected->text)) {
                met_.insert(expected);
                continue;
            }
            cases_[number][place].unmet.push_back(unmet);
        }
        for (CheckedCase& checked : cases_[number]) {
            for (UnmetExpectation& unmet : checked.unmet) unmet.origin = origins[unmet.property];
        }
    });
}

// Throws InputError if an expectation that no boot has met is on a file that the device does not
// have.
void Checker::CheckFiles() const {
    const DeviceTree tree(matrix_->root().view());
    std::vector<std::string> errors;
    for (const Expectation& expectation : expectations_.expectations) {
        for (const auto& [name, expected] : expectation.properties) {
            if (expected.kind != Expected::kFrom || met_.count(&expected) != 0) continue;
            const std::string path = WithoutLine(expected.text);
            FoundFile place;
            if (tree.Find(path, true, &place)) continue;
            std::vector<std::string> paths;
            for (const SurveyedFile& file : SurveyOf({}).files) paths.push_back(file.path);
            errors.push_back(expectations_.file + ":" + std::to_string(expected.line) + ": " +
                             name + " is expected from " + path +
                             ", which the device does not have" +
                             Suggestion(Nearest(path, paths, kNearExpected)));
        }
    }
    if (!errors.empty()) throw InputError(errors);
}

Survey Checker::SurveyOf(const std::optional<std::set<std::string>>& names) const {
    constexpr std::chrono::seconds kLimit(60);
    return TakeSurvey(
            matrix_->root(),
            [&](const std::string& name) { return !names || names->count(name) != 0; }, kLimit);
}

// Returns notes on properties that are expected to be unset and that nothing sets.
std::vector<std::string> Checker::FindNeverSet() const {
    std::map<std::string, int> unseen;
    for (const Expectation& expectation : expectations_.expectations) {
        for (const auto& [name, expected] : expectation.properties) {
            if (expected.kind != Expected::kUnset || unseen_.count(name) == 0) continue;
            unseen.emplace(name, expected.line);
        }
    }
    if (unseen.empty()) return {};
    std::set<std::string> wanted;
    for (const auto& [name, line] : unseen) wanted.insert(name);
    for (const SurveyedFile& file : SurveyOf(wanted).files) {
        for (const LineRead& line : file.lines) unseen.erase(line.name);
    }
    if (unseen.empty()) return {};
    std::set<std::string> known;
    for (const auto& [name, value] : matrix_->base().properties) known.insert(name);
    for (const SurveyedFile& file : SurveyOf(std::nullopt).files) {
        for (const LineRead& line : file.lines) known.insert(line.name);
    }
    std::vector<std::string> notes;
    for (const auto& [name, line] : unseen) {
        notes.push_back(
                expectations_.file + ":" + std::to_string(line) + ": " + name +
                " is expected to be unset, and no file, option or boot has such a property" +
                Suggestion(Nearest(name, {known.begin(), known.end()}, kNearExpected)));
    }
    return notes;
}

void Checker::Finish(CheckResult* result) {
    FindOrigins();
    CheckFiles();
    for (std::string& note : FindNeverSet()) result->notes.push_back(std::move(note));
    result->variants += variants_.size();
    result->checked += checked_;
    cases_.push_back(std::move(missing_));
    for (auto& cases : cases_) {
        for (CheckedCase& checked : cases) result->cases.push_back(std::move(checked));
    }
}

}  // namespace extprop
