#include "output/documents.h"

#include <ostream>

#include "explain/origin_fields.h"
#include "lint/finding_fields.h"
#include "matrix/summary_fields.h"

namespace extprop {

template <typename Fields>
void Visit(Fields& fields, ExplainedProperty& property) {
    fields("name", property.name)("value", property.value)("origins", property.origins);
    if (!property.idle.empty()) fields("idle", property.idle);
}

template <typename Fields>
void Visit(Fields& fields, Explanation& explanation) {
    fields("device", explanation.device)("properties", explanation.properties)("unknown",
                                                                               explanation.unknown);
}

template <typename Fields>
void Visit(Fields& fields, DifferenceSide& side) {
    fields("value", side.value)("origin", side.origin);
}

template <typename Fields>
void Visit(Fields& fields, DifferentProperty& property) {
    fields("name", property.name)("a", property.a)("b", property.b);
}

template <typename Fields>
void Visit(Fields& fields, Difference& difference) {
    fields("added", difference.added)("removed", difference.removed)("changed", difference.changed);
}

template <typename Fields>
void Visit(Fields& fields, UnmetExpectation& unmet) {
    fields("file", unmet.file)("line", unmet.line)("expectation", unmet.expectation)(
            "variant", unmet.variant)("property", unmet.property)("expected", unmet.expected)(
            "value", unmet.value)("origin", unmet.origin)("failure", unmet.failure);
}

template <typename Fields>
void Visit(Fields& fields, MatrixChange& change) {
    fields("name", change.name)("a", change.a)("b", change.b)("variants", change.variants);
}

template <typename Fields>
void Visit(Fields& fields, MatrixDifference& difference) {
    fields("a", difference.device_a)("b", difference.device_b)("variants", difference.variants)(
            "failed", difference.failed)("only_a", difference.only_a)("only_b", difference.only_b)(
            "changes", difference.changes);
}

template <typename Fields>
void Visit(Fields& fields, MissingValue& missing) {
    fields("axis", std::string(kAxes[missing.axis].name))("value", missing.value);
}

namespace {

// Each property with only the fields of its class.
json WriteCompared(const std::vector<ComparedProperty>& properties) {
    json array = json::array();
    for (const ComparedProperty& property : properties) {
        Writer fields;
        fields("name", property.name);
        if (property.device) fields("device", property.device);
        if (property.phone) fields("phone", property.phone);
        if (property.device) fields("origin", property.origin);
        if (property.phone) {
            json lines = json::array();
            for (const PhoneLine& line : property.phone_lines) {
                lines.push_back(Write(line.origin));
                lines.back()["system"] = line.is_system;
            }
            fields("phone_lines", lines);
        }
        array.push_back(std::move(fields.document));
    }
    return array;
}

constexpr int kReportFormat = 2;
constexpr int kExplanationFormat = 2;
constexpr int kDifferenceFormat = 2;
constexpr int kMatrixDifferenceFormat = 1;
constexpr int kVariantListFormat = 1;
constexpr int kCheckFormat = 1;
constexpr int kLintFormat = 1;
constexpr int kComparisonFormat = 1;

template <typename T>
json Document(const T& value, int format) {
    json document = Write(value);
    document["format"] = format;
    return document;
}

}  // namespace

json ToJson(const Summary& summary) {
    return SummaryDocument(summary);
}

json ToJson(const MatrixDifference& difference) {
    return Document(difference, kMatrixDifferenceFormat);
}

json ToJson(const CheckResult& result) {
    json unmet = json::array();
    for (const CheckedCase& checked : result.cases) {
        for (const UnmetExpectation& each : checked.unmet) unmet.push_back(Write(each));
    }
    return {{"format", kCheckFormat},    {"variants", result.variants},
            {"checked", result.checked}, {"phone", Write(result.phone)},
            {"notes", result.notes},     {"unmet", unmet}};
}

json ToJson(const LintReport& report) {
    return Document(report, kLintFormat);
}

json ToJson(const Comparison& comparison) {
    return {{"format", kComparisonFormat},
            {"device", comparison.device},
            {"phone", comparison.phone},
            {"missing", Write(comparison.missing)},
            {"words", comparison.words},
            {"given", comparison.given},
            {"same", comparison.same.size()},
            {"others", comparison.others.size()},
            {"differs", WriteCompared(comparison.differs)},
            {"only_device", WriteCompared(comparison.only_device)},
            {"only_phone", WriteCompared(comparison.only_phone)},
            {"unknown", comparison.unknown},
            {"failure", Write(comparison.failure)}};
}

json CountedJson(const Comparison& comparison) {
    json others = json::array();
    for (const OtherProperty& other : comparison.others) {
        others.push_back({{"name", other.name}, {"phone", other.value}});
        if (other.line) others.back()["origin"] = Write(*other.line);
    }
    return {{"same", comparison.same}, {"others", others}};
}

json ToJson(const Report& report) {
    json document = Document(report, kReportFormat);
    for (json& step : document.at("steps")) {
        for (json& event : step.at("events")) {
            if (!event.contains("changes")) continue;
            for (json& change : event.at("changes")) {
                change["value"] =
                        event.at("properties").at(change.at("name").get_ref<std::string&>());
            }
        }
    }
    return document;
}

json ToJson(const Explanation& explanation) {
    return Document(explanation, kExplanationFormat);
}

void PrintJson(const Explanation& explanation, std::ostream& out) {
    out << "{\"format\": " << kExplanationFormat << ", \"device\": " << JsonLine(explanation.device)
        << ", \"unknown\": " << JsonLine(explanation.unknown) << ", \"properties\": [";
    const char* separator = "\n";
    for (const ExplainedProperty& property : explanation.properties) {
        out << separator << JsonLine(Write(property));
        separator = ",\n";
    }
    out << "\n]}\n";
}

void PrintJson(const VariantSpace& space, const std::vector<Variant>& variants, std::ostream& out) {
    json axes = json::object();
    for (int axis = 0; axis < kAxisCount; ++axis) axes[kAxes[axis].name] = space.values[axis];
    out << "{\"format\": " << kVariantListFormat << ", \"axes\": " << JsonLine(axes)
        << ", \"variants\": [";
    const char* separator = "\n";
    for (const Variant& variant : variants) {
        out << separator
            << JsonLine(Write(SummaryVariant{variant, WordsOf(variant), std::nullopt}));
        separator = ",\n";
    }
    out << "\n]}\n";
}

json ToJson(const Difference& difference) {
    return Document(difference, kDifferenceFormat);
}

template <typename T>
std::string DocumentText(const T& value) {
    return JsonText(ToJson(value));
}

template std::string DocumentText(const Report&);
template std::string DocumentText(const Difference&);
template std::string DocumentText(const MatrixDifference&);
template std::string DocumentText(const CheckResult&);
template std::string DocumentText(const LintReport&);
template std::string DocumentText(const Comparison&);

}  // namespace extprop
