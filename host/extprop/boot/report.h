// What happened in a boot: its steps, and the events of each step in their order. docs/json.md
// describes every field. Paths are the device's unless stated otherwise. Names and values may be
// any bytes.

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

// A property whose value changed when it was given to init.
struct Change {
    std::string name;
    std::optional<std::string> previous;  // none: it was unset
};

// A property that was given to init and that init refused.
struct Refusal {
    std::string name;
    std::string value;
    std::string reason;
};

// Properties that were given to init, and what init did with them.
struct Handover {
    PropertyMap properties;
    std::vector<Change> changes;
    std::vector<Refusal> refused;
};

// What an operation read: a property, or a line of a file by a look-up. While 1000 of a step wait
// for an event, further ones are dropped.
struct OperationInput {
    std::string name;
    std::string value;                // empty if there is none
    std::optional<std::string> file;  // none: the system's property
    int line = 0;                     // 0: the file has none
};

struct CallbackEvent : Handover {
    int mode = 0;
    std::vector<std::string> operations;  // the library's functions, innermost first
    std::optional<int> map;               // the number of the library's map, as in LoadEvent
    std::vector<OperationInput> inputs;   // in a traced boot, since its last hand-over
};

// A step has loaded these into init's own map.
struct MapEvent : Handover {
    std::vector<std::string> operations;
    std::optional<int> map;
};

// The stored persistent properties take effect.
struct StoredEvent : Handover {};

struct LogEvent {
    std::string severity;  // such as "ERROR"
    std::string file;      // of the library's source
    int line = 0;
    std::string message;
};

struct OpenEvent {
    std::string path;
    bool for_writing = false;
};

// The library's loader begins a property file.
struct LoadEvent {
    std::string path;                          // as the library opens it, without doubled slashes
    std::optional<std::string> source;         // the device's own path, if that is another
    std::optional<sandbox::ImagePlace> image;  // the image that holds the device's own file
    std::optional<std::string> filter;         // of the import that led here
    std::optional<std::string> imported_by;    // "file:line"
    bool written = false;                      // the boot itself wrote the file before
    int map = 0;                               // number of the library's map that receives it
    std::vector<std::string> operations;       // the library's functions, innermost first
};

// The library looked up one property.
struct LookUpEvent {
    std::string path;  // this, source and image as in LoadEvent; the file may be missing
    std::optional<std::string> source;
    std::optional<sandbox::ImagePlace> image;
    std::string name;
    std::optional<int> line;  // the line that was taken; none: none begins with the name
    std::vector<std::string> operations;
};

struct MountEvent {
    std::string source;
    std::string target;
    std::vector<std::string> flags;
    std::optional<std::string> error;   // why mounting failed
    std::optional<std::string> covers;  // the target's own path on the device, if it was mounted
};

struct PropertyEvent {
    std::string name;
    std::string value;
    std::vector<std::string> operations;  // none: the bind thread itself
    std::vector<OperationInput> inputs;
};

// An operation of a traced boot read something but set no property from it.
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

// The installing service sends a request to the bind thread.
struct RequestEvent {
    std::string name;
    std::string value;
};

// The bind thread has ignored this request for 5 s.
struct UnacknowledgedEvent {
    std::string value;
};

// The system of a phone that has the switch key sets its property.
struct KeyEvent {
    std::string name;
    std::string value;
};

using Event = std::variant<CallbackEvent, MapEvent, StoredEvent, LogEvent, OpenEvent, LoadEvent,
                           LookUpEvent, MountEvent, PropertyEvent, RestoreconEvent, LogoEvent,
                           RequestEvent, UnacknowledgedEvent, KeyEvent, IdleEvent>;

// A line that a load or look-up read, in a traced boot. Lines are no events, so that reports do not
// hold the files' content.
struct LineRead {
    int number = 0;
    std::string name;
    std::string value;
    bool passed = true;  // the import's filter
};
struct LinesRead {
    int load = 0;  // the LoadEvent's number in this process, from 0; -1: the last look-up
    std::vector<LineRead> lines;
};

// A property file that was loaded and that the boot itself had not written.
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
    std::string path;                 // of the imported file; empty if the name cannot be expanded
    bool leads_to_file = false;       // the path is of a regular file

    bool operator<(const RecordedImport& other) const {
        return std::tie(file, line, values, path, leads_to_file) <
               std::tie(other.file, other.line, other.values, other.path, other.leads_to_file);
    }
};

// What a boot read, each thing once.
struct BootRecord {
    std::set<RecordedLoad> loads;
    std::set<RecordedImport> imports;
    std::set<std::string> asked;                         // the properties that the library read
    std::map<std::string, std::set<std::string>> given;  // the values of the watched properties

    void Add(BootRecord more);
};

struct FileEffect {
    std::string path;
    std::string change;  // "created", "changed" or "deleted"
};

struct StepReport {
    int boot = 1;  // the number of the boot, from 1
    std::string step;
    std::vector<Event> events;
    std::vector<FileEffect> files;
};

// What the library did not survive.
struct BootFailure {
    std::string step;  // the boot's last one if the process failed while it sent the result
    bool timed_out = false;
    std::optional<std::string> signal;
    std::optional<std::string> limit;      // that was reached, such as "40000 opened files"
    std::optional<std::string> last_file;  // that was opened
    std::vector<std::string> cycle = {};   // the import lines that form a cycle, if they do
};

struct BootStart {
    PropertyMap properties;  // the system's at the start
    PropertyMap stored;      // the persistent ones, which take effect after `early`
    // The lines that what-if options changed, by the device's own file and the name. True: for the
    // variant; false: by --edit or the like.
    std::map<std::pair<std::string, std::string>, bool> changed = {};
};

struct Report {
    std::string device;  // the path on this machine
    std::vector<std::string> notes;
    std::vector<BootStart> boots;
    std::vector<StepReport> steps;
    std::optional<BootFailure> failure;
    PropertyMap properties;                 // at the end, or after the last step before a failure
    std::vector<std::string> removed = {};  // if the boot is reported as a difference
    BootRecord record = {};                 // if the plan has one made
};

// Lets std::visit take a lambda for each kind of event.
template <typename... Functions>
struct Overloaded : Functions... {
    using Functions::operator()...;
};
template <typename... Functions>
Overloaded(Functions...) -> Overloaded<Functions...>;

}  // namespace extprop
