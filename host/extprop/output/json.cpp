#include "output/json.h"

#include <stdlib.h>

#include <ostream>
#include <type_traits>

#include <nlohmann/json.hpp>

#include "budget.h"
#include "input_error.h"
#include "output/printable.h"

namespace extprop {

namespace {

// ---- The fields of each type, for both directions: `fields` is a Writer or a Reader.

template <typename Fields>
void Visit(Fields& fields, Change& change) {
    fields("name", change.name)("previous", change.previous);
}

template <typename Fields>
void Visit(Fields& fields, Refusal& refusal) {
    fields("name", refusal.name)("value", refusal.value)("reason", refusal.reason);
}

template <typename Fields>
void Visit(Fields& fields, Handover& handover) {
    fields("properties", handover.properties)("changes", handover.changes)("refused",
                                                                           handover.refused);
}

template <typename Fields>
void Visit(Fields& fields, CallbackEvent& event) {
    Visit(fields, static_cast<Handover&>(event));
    fields("mode", event.mode)("operations", event.operations)("map", event.map);
}

template <typename Fields>
void Visit(Fields& fields, MapEvent& event) {
    Visit(fields, static_cast<Handover&>(event));
    fields("operations", event.operations)("map", event.map);
}

template <typename Fields>
void Visit(Fields& fields, StoredEvent& event) {
    Visit(fields, static_cast<Handover&>(event));
}

template <typename Fields>
void Visit(Fields& fields, LogEvent& event) {
    fields("severity", event.severity)("file", event.file)("line", event.line)("message",
                                                                               event.message);
}

template <typename Fields>
void Visit(Fields& fields, OpenEvent& event) {
    std::string purpose = event.for_writing ? "writing" : "reading";
    fields("path", event.path)("for", purpose);
    event.for_writing = purpose == "writing";
}

template <typename Fields>
void Visit(Fields& fields, sandbox::ImagePlace& place) {
    fields("file", place.image)("path", place.path);
}

template <typename Fields>
void Visit(Fields& fields, LoadEvent& event) {
    fields("path", event.path)("source", event.source)("image", event.image)(
            "filter", event.filter)("imported_by", event.imported_by)("written", event.written)(
            "map", event.map);
}

template <typename Fields>
void Visit(Fields& fields, LookUpEvent& event) {
    fields("path", event.path)("source", event.source)("image", event.image)("name", event.name)(
            "line", event.line)("operations", event.operations);
}

template <typename Fields>
void Visit(Fields& fields, MountEvent& event) {
    fields("source", event.source)("target", event.target)("flags", event.flags)(
            "error", event.error)("covers", event.covers);
}

template <typename Fields>
void Visit(Fields& fields, PropertyEvent& event) {
    fields("name", event.name)("value", event.value)("operations", event.operations);
}

template <typename Fields>
void Visit(Fields& fields, RestoreconEvent& event) {
    fields("path", event.path)("flags", event.flags)("result", event.result);
}

template <typename Fields>
void Visit(Fields& fields, LogoEvent& event) {
    fields("source", event.source)("bytes", event.bytes);
}

template <typename Fields>
void Visit(Fields& fields, RequestEvent& event) {
    fields("name", event.name)("value", event.value);
}

template <typename Fields>
void Visit(Fields& fields, UnacknowledgedEvent& event) {
    fields("value", event.value);
}

template <typename Fields>
void Visit(Fields& fields, FileEffect& file) {
    fields("path", file.path)("change", file.change);
}

template <typename Fields>
void Visit(Fields& fields, StepReport& step) {
    fields("boot", step.boot)("step", step.step)("events", step.events)("files", step.files);
}

template <typename Fields>
void Visit(Fields& fields, BootFailure& failure) {
    fields("step", failure.step)("timed_out", failure.timed_out)("signal", failure.signal)(
            "limit", failure.limit)("last_file", failure.last_file);
}

template <typename Fields>
void Visit(Fields& fields, BootStart& boot) {
    fields("properties", boot.properties)("stored", boot.stored);
}

template <typename Fields>
void Visit(Fields& fields, Report& report) {
    fields("device", report.device)("notes", report.notes)("boots", report.boots)(
            "steps", report.steps)("failure", report.failure)("properties", report.properties);
}

template <typename Fields>
void Visit(Fields& fields, LinesRead& read) {
    fields("load", read.load)("lines", read.lines);
}

template <typename Fields>
void Visit(Fields& fields, ImportRead& import) {
    fields("load", import.load)("line", import.line)("references", import.references);
}

template <typename Fields>
void Visit(Fields& fields, StepRequest& request) {
    fields("index", request.index);
}

template <typename Fields>
void Visit(Fields& fields, SurveyedImport& import) {
    fields("line", import.line)("text", import.text)("filter", import.filter)("targets",
                                                                              import.targets);
}

template <typename Fields>
void Visit(Fields& fields, Reading& reading) {
    fields("occasion", reading.occasion)("root_words", reading.root_words)("root", reading.root)(
            "place", reading.place)("is_through_mount", reading.is_through_mount)(
            "key_index", reading.key_index)("key", reading.key);
}

template <typename Fields>
void Visit(Fields& fields, SurveyedFile& file) {
    fields("path", file.path)("source", file.source)("lines", file.lines)("imports", file.imports)(
            "readings", file.readings);
}

template <typename Fields>
void Visit(Fields& fields, Survey& survey) {
    fields("files", survey.files)("references", survey.references)(
            "unmapped_key", survey.unmapped_key)("switch_keys", survey.switch_keys)(
            "nv_target", survey.nv_target)("has_first_key", survey.has_first_key)(
            "has_mark", survey.has_mark)("mounted_sources", survey.mounted_sources)(
            "package_target", survey.package_target)("module_target", survey.module_target);
}

template <typename Fields>
void Visit(Fields& fields, ExplainedProperty& property) {
    fields("name", property.name)("value", property.value)("origins", property.origins);
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
void Visit(Fields& fields, Outcome& outcome) {
    fields("words", outcome.words)("changed", outcome.changed)("removed", outcome.removed)(
            "failure", outcome.failure)("seconds", outcome.seconds);
}

template <typename Fields>
void Visit(Fields& fields, VariantLine& line) {
    fields("variant", line.variant)("properties", line.properties)("failure", line.failure);
}

template <typename Fields>
void Visit(Fields& fields, SummaryVariant& variant) {
    fields("variant", variant.variant)("words", variant.words)("failure", variant.failure);
}

template <typename Fields>
void Visit(Fields& fields, SummaryValue& value) {
    fields("value", value.value)("variants", value.variants)("origin", value.origin);
}

template <typename Fields>
void Visit(Fields& fields, SummaryProperty& property) {
    fields("name", property.name)("values", property.values);
}

template <typename Fields>
void Visit(Fields& fields, DeadPlace& place) {
    fields("path", place.path)("reason", place.reason);
}

template <typename Fields>
void Visit(Fields& fields, Shard& shard) {
    fields("number", shard.number)("count", shard.count);
}

template <typename Fields>
void Visit(Fields& fields, Summary& summary) {
    fields("device", summary.device)("variants", summary.variants)(
            "properties", summary.properties)("dead", summary.dead)("shard", summary.shard)(
            "same", summary.same);
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
void Visit(Fields& fields, KnownFinding& finding) {
    fields("fingerprint", finding.fingerprint)("identifier", finding.identifier)(
            "path", finding.path)("text", finding.text);
}

template <typename Fields>
void Visit(Fields& fields, LinePlace& place) {
    fields("file", place.file)("line", place.line);
}

template <typename Fields>
void Visit(Fields& fields, Finding& finding) {
    std::string severity = SeverityName(finding.severity);
    fields("file", finding.file)("line", finding.line)("severity", severity)(
            "identifier", finding.identifier)("message", finding.message)("image", finding.image)(
            "fingerprint", finding.fingerprint)("others", finding.others);
}

template <typename Fields>
void Visit(Fields& fields, LintReport& report) {
    fields("findings", report.findings)("notes", report.notes)("known", report.known)("fixed",
                                                                                      report.fixed);
}

// The names of the kinds of events, in the order of the variant.
constexpr const char* kEventNames[] = {
        "callback", "map",      "stored",     "log",  "open",    "load",          "look-up",
        "mount",    "property", "restorecon", "logo", "request", "unacknowledged"};
static_assert(std::size(kEventNames) == std::variant_size_v<Event>);

// ---- To JSON.

template <typename T>
json Write(const T& value);

class Writer {
  public:
    template <typename T>
    Writer& operator()(const char* name, const T& value) {
        document[name] = Write(value);
        return *this;
    }
    json document = json::object();
};

template <typename T>
struct IsVector : std::false_type {};
template <typename T>
struct IsVector<std::vector<T>> : std::true_type {};
template <typename T>
struct IsOptional : std::false_type {};
template <typename T>
struct IsOptional<std::optional<T>> : std::true_type {};

template <typename T>
constexpr bool kIsPlain =
        std::is_arithmetic_v<T> || std::is_same_v<T, std::string> || std::is_same_v<T, json> ||
        std::is_same_v<T, PropertyMap> || std::is_same_v<T, std::set<std::string>> ||
        std::is_same_v<T, std::pair<std::string, std::string>>;

json WriteOrigin(const Origin& origin) {
    constexpr const char* kKinds[] = {"given", "file", "operation", "request"};
    Writer fields;
    fields("kind", std::string(kKinds[static_cast<int>(origin.kind)]))("value", origin.value)(
            "fate", std::string(Name(origin.fate)));
    if (origin.boot && origin.fate != Fate::kNotLoaded) fields("boot", origin.boot);
    if (origin.step) fields("step", origin.step);
    if (origin.kind == OriginKind::kFile) {
        fields("file", origin.file)("line", origin.line)("source", origin.source)(
                "image", origin.image)("imported_by", origin.imported_by)("filter", origin.filter)(
                "written", origin.written);
    }
    if (origin.kind == OriginKind::kOperation || origin.fate == Fate::kLookedUp) {
        fields("operations", origin.operations);
    }
    if (origin.did_not_load()) fields("requires", origin.required);
    return std::move(fields.document);
}

// The lines of files are by far the most of what is sent, so they travel as one text: in each line
// of it the number, whether the line passed, the length of the name, the name and the value. None
// of these has a line end.
std::string WriteLines(const std::vector<LineRead>& lines) {
    std::string text;
    for (const LineRead& line : lines) {
        text += std::to_string(line.number) + (line.passed ? " 1 " : " 0 ") +
                std::to_string(line.name.size()) + " " + line.name + line.value + "\n";
    }
    return text;
}

std::vector<LineRead> ReadLines(const std::string& text) {
    std::vector<LineRead> lines;
    for (size_t at = 0; at < text.size();) {
        LineRead& line = lines.emplace_back();
        char* next = nullptr;
        line.number = static_cast<int>(strtol(text.c_str() + at, &next, 10));
        line.passed = strtol(next, &next, 10) != 0;
        const size_t length = strtoul(next, &next, 10);
        at = next + 1 - text.c_str();
        const size_t end = text.find('\n', at);
        line.name = text.substr(at, length);
        line.value = text.substr(at + length, end - at - length);
        at = end + 1;
    }
    return lines;
}

// All properties of a device likewise: the lengths of the name and of the value, and both.
std::string WriteProperties(const PropertyMap& properties) {
    std::string text;
    for (const auto& [name, value] : properties) {
        text += std::to_string(name.size()) + " " + std::to_string(value.size()) + " " + name +
                value;
    }
    return text;
}

PropertyMap ReadProperties(const std::string& text) {
    PropertyMap properties;
    for (size_t at = 0; at < text.size();) {
        char* next = nullptr;
        const size_t name = strtoul(text.c_str() + at, &next, 10);
        const size_t value = strtoul(next, &next, 10);
        at = next + 1 - text.c_str();
        properties.emplace_hint(properties.end(), text.substr(at, name),
                                text.substr(at + name, value));
        at += name + value;
    }
    return properties;
}

json WriteVariant(const Variant& variant) {
    json document = json::object();
    for (int axis = 0; axis < kAxisCount; ++axis) {
        if (variant[axis]) document[kAxisNames[axis]] = *variant[axis];
    }
    return document;
}

Variant ReadVariant(const json& document) {
    Variant variant;
    for (const auto& [name, value] : document.items()) {
        variant[AxisNamed(name)] = value.get<std::string>();
    }
    return variant;
}

template <typename T>
json Write(const T& value) {
    if constexpr (kIsPlain<T>) {
        return value;
    } else if constexpr (std::is_enum_v<T>) {
        return static_cast<int>(value);
    } else if constexpr (std::is_same_v<T, OriginDocument>) {
        return value ? *value : json();
    } else if constexpr (IsOptional<T>::value) {
        return value ? Write(*value) : json();
    } else if constexpr (std::is_same_v<T, std::vector<LineRead>>) {
        return WriteLines(value);
    } else if constexpr (IsVector<T>::value) {
        json array = json::array();
        array.get_ref<json::array_t&>().reserve(value.size());
        for (const auto& element : value) array.push_back(Write(element));
        return array;
    } else if constexpr (std::is_same_v<T, Origin>) {
        return WriteOrigin(value);
    } else if constexpr (std::is_same_v<T, Variant>) {
        return WriteVariant(value);
    } else if constexpr (std::is_same_v<T, Event>) {
        json event = std::visit([](const auto& kind) { return Write(kind); }, value);
        event["event"] = kEventNames[value.index()];
        return event;
    } else {
        Writer writer;
        Visit(writer, const_cast<T&>(value));  // which only reads it
        return std::move(writer.document);
    }
}

// ---- From JSON, whose strings are taken: a document may be as large as a device's files.

template <typename T>
void Read(json& document, T* value);

class Reader {
  public:
    explicit Reader(json& document) : document_(document) {}
    template <typename T>
    Reader& operator()(const char* name, T& value) {
        Read(document_.at(name), &value);
        return *this;
    }

  private:
    json& document_;
};

template <size_t kIndex = 0>
void ReadEvent(json& document, Event* event) {
    if constexpr (kIndex < std::variant_size_v<Event>) {
        if (document.at("event") != kEventNames[kIndex]) {
            ReadEvent<kIndex + 1>(document, event);
            return;
        }
        Read(document, &event->emplace<kIndex>());
    }
}

template <typename T>
void Read(json& document, T* value) {
    if constexpr (std::is_same_v<T, std::string>) {
        *value = std::move(document.get_ref<std::string&>());
    } else if constexpr (std::is_same_v<T, PropertyMap>) {
        auto& object = document.get_ref<json::object_t&>();
        while (!object.empty()) {
            auto node = object.extract(object.begin());
            value->emplace_hint(value->end(), std::move(node.key()),
                                std::move(node.mapped().get_ref<std::string&>()));
        }
    } else if constexpr (kIsPlain<T>) {
        document.get_to(*value);
    } else if constexpr (std::is_enum_v<T>) {
        *value = static_cast<T>(document.get<int>());
    } else if constexpr (std::is_same_v<T, OriginDocument>) {
        if (!document.is_null()) *value = std::make_shared<json>(std::move(document));
    } else if constexpr (IsOptional<T>::value) {
        if (!document.is_null()) Read(document, &value->emplace());
    } else if constexpr (std::is_same_v<T, std::vector<LineRead>>) {
        *value = ReadLines(document.get_ref<const std::string&>());
    } else if constexpr (IsVector<T>::value) {
        value->reserve(document.size());
        for (json& element : document) Read(element, &value->emplace_back());
    } else if constexpr (std::is_same_v<T, Event>) {
        ReadEvent(document, value);
    } else if constexpr (std::is_same_v<T, Variant>) {
        *value = ReadVariant(document);
    } else {
        Reader reader(document);
        Visit(reader, *value);
    }
}

constexpr int kReportFormat = 2;
constexpr int kExplanationFormat = 2;
constexpr int kDifferenceFormat = 2;
constexpr int kSummaryFormat = 1;
constexpr int kMatrixDifferenceFormat = 1;
constexpr int kVariantListFormat = 1;
constexpr int kCheckFormat = 1;
constexpr int kLintFormat = 1;

template <typename T>
json Document(const T& value, int format) {
    json document = Write(value);
    document["format"] = format;
    return document;
}

}  // namespace

json ToJson(const Message& message) {
    const json body =
            std::visit(Overloaded{
                               [](const StepDone& done) -> json {
                                   return {WriteProperties(done.delta.changed), done.delta.removed};
                               },
                               [](const auto& kind) { return Write(kind); },
                       },
                       message);
    return {message.index(), body};
}

Message MessageFromJson(json document) {
    json& body = document.at(1);
    Message message;
    switch (document.at(0).get<int>()) {
        case 0:
            Read(body, &message.emplace<StepRequest>());
            break;
        case 1:
            message = StepDone{{ReadProperties(body.at(0).get_ref<const std::string&>()),
                                body.at(1).get<std::vector<std::string>>()}};
            break;
        case 2:
            Read(body, &message.emplace<Event>());
            break;
        case 3:
            Read(body, &message.emplace<LinesRead>());
            break;
        default:
            Read(body, &message.emplace<ImportRead>());
    }
    return message;
}

json ToJson(const Survey& survey) {
    return Write(survey);
}

Survey SurveyFromJson(json document) {
    Survey survey;
    Read(document, &survey);
    return survey;
}

json ToJson(const Outcome& outcome) {
    return Write(outcome);
}

Outcome OutcomeFromJson(json document) {
    Outcome outcome;
    Read(document, &outcome);
    return outcome;
}

json ToJson(const Origin& origin) {
    return Write(origin);
}

json ToJson(const KnownFinding& finding) {
    return Write(finding);
}

KnownFinding KnownFindingFromJson(json document) {
    KnownFinding finding;
    Read(document, &finding);
    return finding;
}

VariantLine VariantLineFromJson(json document) {
    VariantLine line;
    Read(document, &line);
    return line;
}

Summary SummaryFromJson(json document) {
    Summary summary;
    Read(document, &summary);
    return summary;
}

json ToJson(const VariantLine& line) {
    return Write(line);
}

json ToJson(const Summary& summary) {
    return Document(summary, kSummaryFormat);
}

json ToJson(const MatrixDifference& difference) {
    return Document(difference, kMatrixDifferenceFormat);
}

json ToJson(const CheckResult& result) {
    json unmet = json::array();
    for (const CheckedCase& checked : result.cases) {
        for (const UnmetExpectation& each : checked.unmet) unmet.push_back(Write(each));
    }
    return {{"format", kCheckFormat},
            {"variants", result.variants},
            {"checked", result.checked},
            {"unmet", unmet}};
}

json ToJson(const LintReport& report) {
    return Document(report, kLintFormat);
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

std::string JsonLine(const json& document) {
    return PrintableJson(document.dump(-1, ' ', false, json::error_handler_t::replace));
}

std::string JsonText(const json& document) {
    return PrintableJson(document.dump(2, ' ', false, json::error_handler_t::replace)) + "\n";
}

void CheckShape(const std::string& json, const std::string& place) {
    size_t depth = 0;
    size_t values = 1;
    bool in_string = false;
    for (size_t at = 0; at < json.size(); ++at) {
        const char c = json[at];
        if (c == '"') {
            in_string = !in_string;
        } else if (in_string) {
            if (c == '\\') ++at;
        } else if (c == '[' || c == '{') {
            ++values;
            ++depth;
        } else if (c == ']' || c == '}') {
            depth -= depth > 0 ? 1 : 0;
        } else if (c == ',') {
            ++values;
        }
        if (depth > limits::kJsonDepth) {
            throw InputError(place + "this is nested more than " +
                             std::to_string(limits::kJsonDepth) + " deep");
        }
        if (values > limits::kJsonValues) {
            throw InputError(place + "this has more than " + std::to_string(limits::kJsonValues) +
                             " values");
        }
    }
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

void PrintJson(const VariantSpace& space, const std::vector<Variant>& variants,
               const std::function<Words(const Variant&)>& words, std::ostream& out) {
    json axes = json::object();
    for (int axis = 0; axis < kAxisCount; ++axis) axes[kAxisNames[axis]] = space.values[axis];
    out << "{\"format\": " << kVariantListFormat << ", \"axes\": " << JsonLine(axes)
        << ", \"variants\": [";
    const char* separator = "\n";
    for (const Variant& variant : variants) {
        out << separator << JsonLine(Write(SummaryVariant{variant, words(variant), std::nullopt}));
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

}  // namespace extprop
