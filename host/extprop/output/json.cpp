#include "output/json.h"

#include <stdlib.h>

#include <ostream>
#include <type_traits>

namespace extprop {

namespace {

// ---- The fields of each type, for both directions: `fields` is a Writer or a Reader.

template <typename Fields>
void Visit(Fields& fields, Change& change) {
    fields("name", change.name)("value", change.value)("previous", change.previous);
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
void Visit(Fields& fields, LoadEvent& event) {
    fields("path", event.path)("source", event.source)("filter", event.filter)(
            "imported_by", event.imported_by)("written", event.written)("map", event.map);
}

template <typename Fields>
void Visit(Fields& fields, LookUpEvent& event) {
    fields("path", event.path)("source", event.source)("name", event.name)("line", event.line)(
            "operations", event.operations);
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
            "last_file", failure.last_file);
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
void Visit(Fields& fields, StepDone& done) {
    fields("properties", done.properties);
}

template <typename Fields>
void Visit(Fields& fields, SurveyedImport& import) {
    fields("line", import.line)("text", import.text)("filter", import.filter)("targets",
                                                                              import.targets);
}

template <typename Fields>
void Visit(Fields& fields, Reading& reading) {
    fields("occasion", reading.occasion)("root_words", reading.root_words)("root", reading.root)(
            "place", reading.place)("key_index", reading.key_index)("key", reading.key);
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
            "nv_target", survey.nv_target)("migrates", survey.migrates)(
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
        std::is_arithmetic_v<T> || std::is_same_v<T, std::string> ||
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
                "imported_by", origin.imported_by)("filter", origin.filter)("written",
                                                                            origin.written);
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

template <typename T>
json Write(const T& value) {
    if constexpr (kIsPlain<T>) {
        return value;
    } else if constexpr (std::is_enum_v<T>) {
        return static_cast<int>(value);
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

// ---- From JSON.

template <typename T>
void Read(const json& document, T* value);

class Reader {
  public:
    explicit Reader(const json& document) : document_(document) {}
    template <typename T>
    Reader& operator()(const char* name, T& value) {
        Read(document_.at(name), &value);
        return *this;
    }

  private:
    const json& document_;
};

template <size_t kIndex = 0>
void ReadEvent(const json& document, Event* event) {
    if constexpr (kIndex < std::variant_size_v<Event>) {
        if (document.at("event") != kEventNames[kIndex]) {
            ReadEvent<kIndex + 1>(document, event);
            return;
        }
        Read(document, &event->emplace<kIndex>());
    }
}

template <typename T>
void Read(const json& document, T* value) {
    if constexpr (kIsPlain<T>) {
        document.get_to(*value);
    } else if constexpr (std::is_enum_v<T>) {
        *value = static_cast<T>(document.get<int>());
    } else if constexpr (IsOptional<T>::value) {
        if (!document.is_null()) Read(document, &value->emplace());
    } else if constexpr (std::is_same_v<T, std::vector<LineRead>>) {
        *value = ReadLines(document.get_ref<const std::string&>());
    } else if constexpr (IsVector<T>::value) {
        value->reserve(document.size());
        for (const json& element : document) Read(element, &value->emplace_back());
    } else if constexpr (std::is_same_v<T, Event>) {
        ReadEvent(document, value);
    } else {
        Reader reader(document);
        Visit(reader, *value);
    }
}

constexpr int kReportFormat = 2;
constexpr int kExplanationFormat = 2;
constexpr int kDifferenceFormat = 2;

template <typename T>
json Document(const T& value, int format) {
    json document = Write(value);
    document["format"] = format;
    return document;
}

}  // namespace

json ToJson(const Message& message) {
    return {message.index(), std::visit([](const auto& kind) { return Write(kind); }, message)};
}

Message MessageFromJson(const json& document) {
    const json& body = document.at(1);
    Message message;
    switch (document.at(0).get<int>()) {
        case 0:
            Read(body, &message.emplace<StepRequest>());
            break;
        case 1:
            Read(body, &message.emplace<StepDone>());
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

Survey SurveyFromJson(const json& document) {
    Survey survey;
    Read(document, &survey);
    return survey;
}

json ToJson(const Report& report) {
    return Document(report, kReportFormat);
}

json ToJson(const Explanation& explanation) {
    return Document(explanation, kExplanationFormat);
}

void PrintJson(const Explanation& explanation, std::ostream& out) {
    const auto text = [](const json& part) {
        return part.dump(-1, ' ', false, json::error_handler_t::replace);
    };
    out << "{\"format\": " << kExplanationFormat << ", \"device\": " << text(explanation.device)
        << ", \"unknown\": " << text(explanation.unknown) << ", \"properties\": [";
    const char* separator = "\n";
    for (const ExplainedProperty& property : explanation.properties) {
        out << separator << text(Write(property));
        separator = ",\n";
    }
    out << "\n]}\n";
}

json ToJson(const Difference& difference) {
    return Document(difference, kDifferenceFormat);
}

}  // namespace extprop
