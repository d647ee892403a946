// The fields of a boot's report, as json/fields.h writes and reads them. Read() is for what Write()
// made; of anything else it makes a wrong report or throws json::exception or std::out_of_range.

#pragma once

#include <stdlib.h>

#include <iterator>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "boot/report.h"
#include "boot/what_if.h"
#include "json/fields.h"

namespace sandbox {

template <typename Fields>
void Visit(Fields& fields, sandbox::ImagePlace& place) {
    fields("file", place.image)("name", place.name)("path", place.path);
}

}  // namespace sandbox

namespace extprop {

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
void Visit(Fields& fields, OperationInput& input) {
    fields("name", input.name)("value", input.value)("file", input.file)("line", input.line);
}

template <typename Fields>
void Visit(Fields& fields, CallbackEvent& event) {
    Visit(fields, static_cast<Handover&>(event));
    fields("mode", event.mode)("operations", event.operations)("map", event.map)("inputs",
                                                                                 event.inputs);
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
    fields("path", event.path)("source", event.source)("image", event.image)(
            "filter", event.filter)("imported_by", event.imported_by)("written", event.written)(
            "map", event.map)("operations", event.operations);
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
    fields("name", event.name)("value", event.value)("operations", event.operations)("inputs",
                                                                                     event.inputs);
}

template <typename Fields>
void Visit(Fields& fields, IdleEvent& event) {
    fields("operations", event.operations)("inputs", event.inputs);
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
void Visit(Fields& fields, KeyEvent& event) {
    fields("name", event.name)("value", event.value);
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
            "limit", failure.limit)("last_file", failure.last_file)("cycle", failure.cycle);
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
void Visit(Fields& fields, RecordedLoad& load) {
    fields("file", load.file)("filter", load.filter)("step", load.step);
}

template <typename Fields>
void Visit(Fields& fields, RecordedImport& import) {
    fields("file", import.file)("line", import.line)("values", import.values)("path", import.path)(
            "leads_to_file", import.leads_to_file);
}

template <typename Fields>
void Visit(Fields& fields, BootRecord& record) {
    fields("loads", record.loads)("imports", record.imports)("asked", record.asked)("given",
                                                                                    record.given);
}

// The names of the kinds of events, in the order of the variant.
inline constexpr const char* kEventNames[] = {
        "callback", "map",        "stored", "log",     "open",           "load", "look-up", "mount",
        "property", "restorecon", "logo",   "request", "unacknowledged", "key",  "idle"};
static_assert(std::size(kEventNames) == std::variant_size_v<Event>);

template <>
struct Json<Event> {
    static json Write(const Event& event) {
        json document = std::visit([](const auto& kind) { return extprop::Write(kind); }, event);
        document["event"] = kEventNames[event.index()];
        return document;
    }
    static void Read(json& document, Event* event) { ReadKind<0>(document, event); }

  private:
    template <size_t kIndex>
    static void ReadKind(json& document, Event* event) {
        if constexpr (kIndex < std::variant_size_v<Event>) {
            if (document.at("event") != kEventNames[kIndex]) {
                ReadKind<kIndex + 1>(document, event);
                return;
            }
            extprop::Read(document, &event->emplace<kIndex>());
        }
    }
};

// Lines of files are by far the most that is sent, so they are sent as one text. Each line of it
// has the number, whether the line passed, the length of the name, the name and the value, none of
// which contains a line end.
template <>
struct Json<std::vector<LineRead>> {
    static json Write(const std::vector<LineRead>& lines) {
        std::string text;
        for (const LineRead& line : lines) {
            text += std::to_string(line.number) + (line.passed ? " 1 " : " 0 ") +
                    std::to_string(line.name.size()) + " " + line.name + line.value + "\n";
        }
        return text;
    }

    static void Read(json& document, std::vector<LineRead>* lines) {
        const auto& text = document.get_ref<const std::string&>();
        for (size_t at = 0; at < text.size();) {
            LineRead& line = lines->emplace_back();
            char* next = nullptr;
            line.number = static_cast<int>(strtol(text.c_str() + at, &next, 10));
            line.passed = strtol(next, &next, 10) != 0;
            const size_t length = strtoul(next, &next, 10);
            at = next + 1 - text.c_str();
            const size_t end = text.find('\n', at);
            if (end == std::string::npos || length > end - at) {
                throw std::out_of_range("a line that was read is cut off");
            }
            line.name = text.substr(at, length);
            line.value = text.substr(at + length, end - at - length);
            at = end + 1;
        }
    }
};

// Only the axes that have a value, by their names. Read() throws as AxisNamed() does.
template <>
struct Json<Variant> {
    static json Write(const Variant& variant) {
        json document = json::object();
        for (int axis = 0; axis < kAxisCount; ++axis) {
            if (variant[axis]) document[kAxes[axis].name] = *variant[axis];
        }
        return document;
    }

    static void Read(json& document, Variant* variant) {
        for (const auto& [name, value] : document.items()) {
            (*variant)[AxisNamed(name)] = value.get<std::string>();
        }
    }
};

}  // namespace extprop
