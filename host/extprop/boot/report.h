// What happened in a boot: the steps, and in each the events in their order. docs/json.md describes
// every field; output/json.cpp alone knows their names there.

#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

#include "IInitExtensionProperty.h"
#include "sandbox.h"

namespace extprop {

using android::init::PropertyMap;

// A property that init was given with a new value, which stands among all that it was given.
struct Change {
    std::string name;
    std::optional<std::string> previous;
};

// A property that init was given and does not take.
struct Refusal {
    std::string name;
    std::string value;
    std::string reason;
};

// Properties that init was given, and what became of them.
struct Handover {
    PropertyMap properties;
    std::vector<Change> changes;
    std::vector<Refusal> refused;
};

// What an operation read: a property, or a line of a file that it looked up.
struct OperationInput {
    std::string name;
    std::string value;                // empty if there is none
    std::optional<std::string> file;  // none: the system's property
    int line = 0;                     // 0: the file has none
};

struct CallbackEvent : Handover {
    int mode = 0;
    std::vector<std::string> operations;  // the library's functions, innermost first
    std::optional<int> map;               // of LoadEvent: which of the library's maps it was
    std::vector<OperationInput> inputs;   // in a traced boot, since it last gave something
};

// What a step loaded into init's own map.
struct MapEvent : Handover {
    std::vector<std::string> operations;
    std::optional<int> map;
};

// The stored persistent properties come in force.
struct StoredEvent : Handover {};

struct LogEvent {
    std::string severity;
    std::string file;
    int line = 0;
    std::string message;
};

struct OpenEvent {
    std::string path;
    bool for_writing = false;
};

// The loader begins a property file.
struct LoadEvent {
    std::string path;                          // as it is opened, without doubled slashes
    std::optional<std::string> source;         // the device's own file, where that is another
    std::optional<sandbox::ImagePlace> image;  // that the device's own file lies in
    std::optional<std::string> filter;         // of the import that led here
    std::optional<std::string> imported_by;    // "file:line"
    bool written = false;                      // the boot itself wrote the file before
    int map = 0;                               // which of the library's maps it goes to
    std::vector<std::string> operations;       // the library's functions, innermost first
};

// The library looked up one property.
struct LookUpEvent {
    std::string path;
    std::optional<std::string> source;
    std::optional<sandbox::ImagePlace> image;
    std::string name;
    std::optional<int> line;  // the line that was taken
    std::vector<std::string> operations;
};

struct MountEvent {
    std::string source;
    std::string target;
    std::vector<std::string> flags;
    std::optional<std::string> error;
    std::optional<std::string> covers;  // the device's own path of the target, if it was mounted
};

struct PropertyEvent {
    std::string name;
    std::string value;
    std::vector<std::string> operations;  // none: the bind thread itself
    std::vector<OperationInput> inputs;
};

// An operation of a traced boot that read something and gave nothing for it.
struct IdleEvent {
    std::vector<std::string> operations;
    std::vector<OperationInput> inputs;
};

struct RestoreconEvent {
    std::string path;
    int flags = 0;
    int result = 0;
};

struct LogoEvent {
    std::string source;
    int bytes = 0;
};

struct RequestEvent {
    std::string name;
    std::string value;
};

struct UnacknowledgedEvent {
    std::string value;
};

// A switch key that the system of a phone which has it sets.
struct KeyEvent {
    std::string name;
    std::string value;
};

using Event = std::variant<CallbackEvent, MapEvent, StoredEvent, LogEvent, OpenEvent, LoadEvent,
                           LookUpEvent, MountEvent, PropertyEvent, RestoreconEvent, LogoEvent,
                           RequestEvent, UnacknowledgedEvent, KeyEvent, IdleEvent>;

// What a traced boot tells besides, of the event before: the lines that a load or look-up read.
// They are no event, so that what files contain is in no report.
struct LineRead {
    int number = 0;
    std::string name;
    std::string value;
    bool passed = true;  // an import's filter
};
struct LinesRead {
    int load = 0;  // counts the process's LoadEvents from 0; -1: the look-up just told of
    std::vector<LineRead> lines;
};

// A property file that was loaded, as it was before the boot.
struct RecordedLoad {
    std::string file;    // the device's own
    std::string filter;  // of the import that led there, or empty
    std::string step;

    bool operator<(const RecordedLoad& other) const {
        return std::tie(file, filter, step) < std::tie(other.file, other.filter, other.step);
    }
};

// An import line of such a file.
struct RecordedImport {
    std::string file;
    int line = 0;
    std::vector<std::string> values;  // of its references then
    std::string path;                 // to which it led; empty if it could lead nowhere
    bool leads_to_file = false;       // a regular file

    bool operator<(const RecordedImport& other) const {
        return std::tie(file, line, values, path, leads_to_file) <
               std::tie(other.file, other.line, other.values, other.path, other.leads_to_file);
    }
};

// What was read in a boot, each thing once.
struct BootRecord {
    std::set<RecordedLoad> loads;
    std::set<RecordedImport> imports;
    std::set<std::string> asked;  // the properties that the library asked for
    std::map<std::string, std::set<std::string>> given;  // of those watched, what they were given

    void Add(BootRecord more);
};

struct FileEffect {
    std::string path;
    std::string change;  // "created", "changed" or "deleted"
};

struct StepReport {
    int boot = 1;
    std::string step;
    std::vector<Event> events;
    std::vector<FileEffect> files;
};

// What the library did not survive.
struct BootFailure {
    std::string step;
    bool timed_out = false;
    std::optional<std::string> signal;
    std::optional<std::string> limit;  // that was met, such as "1073741824 bytes of memory"
    std::optional<std::string> last_file;
    std::vector<std::string> cycle = {};  // the import lines that lead in a circle, if they do
};

struct BootStart {
    PropertyMap properties;  // the system's at the start
    PropertyMap stored;      // the persistent ones that come in force behind `early`
    // The lines that what-if options changed, by the device's own file and the name, and whether it
    // was for the variant, rather than --edit.
    std::map<std::pair<std::string, std::string>, bool> changed = {};
};

struct Report {
    std::string device;
    std::vector<std::string> notes;
    std::vector<BootStart> boots;
    std::vector<StepReport> steps;
    std::optional<BootFailure> failure;
    PropertyMap properties;                 // at the end, or after the last step before a failure
    std::vector<std::string> removed = {};  // of a boot that is told against other properties
    BootRecord record = {};                 // if the plan asks for it
};

// Helps std::visit to take one lambda for each kind of event.
template <typename... Functions>
struct Overloaded : Functions... {
    using Functions::operator()...;
};
template <typename... Functions>
Overloaded(Functions...) -> Overloaded<Functions...>;

}  // namespace extprop
