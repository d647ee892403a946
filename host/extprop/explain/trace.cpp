#include "explain/trace.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "device/property_lines.h"
#include "boot/steps.h"
#include "utils.h"

namespace extprop {

using nlohmann::json;

namespace {

using android::base::StartsWith;

std::string Text(const json& value) {
    return value.get<std::string>();
}

// The load of one property file, as its events show it.
struct Load {
    std::string path;
    std::string content;
    // One for each import line that was reached; none where its file name could not be expanded.
    std::vector<std::unique_ptr<Load>> imports;
};

// One line that gave a property its value.
struct Assignment {
    std::string name;
    std::string value;
    json place;  // the "file", "line" and "imported_by" of an origin
};

// Returns the names that the library's own loader takes from the file, which an empty filter takes
// whole.
std::set<std::string> LoadedNames(const std::string& content, const std::string& filter) {
    const TemporaryFile file;
    android::base::WriteStringToFd(content, file.fd);
    PropertyMap properties;
    load_properties_from_file_without_se(file.path, filter.empty() ? "*" : filter.c_str(),
                                         &properties);
    std::set<std::string> names;
    for (const auto& [name, value] : properties) names.insert(name);
    return names;
}

// Adds the load's assignments in order of time.
void Follow(const Load& load, const std::string& filter, const json& imported_by,
            std::vector<Assignment>* assignments) {
    const std::set<std::string> names = LoadedNames(load.content, filter);
    auto next_import = load.imports.begin();
    for (const PropertyLine& line : PropertyLines(load.content, !filter.empty())) {
        if (line.kind == PropertyLine::kImport && next_import != load.imports.end()) {
            const std::unique_ptr<Load>& imported = *next_import++;
            if (imported == nullptr) continue;
            Follow(*imported, std::string(line.value),
                   load.path + ":" + std::to_string(line.number), assignments);
        } else if (line.kind == PropertyLine::kProperty && names.count(std::string(line.name))) {
            assignments->push_back(
                    {std::string(line.name),
                     std::string(line.value),
                     {{"file", load.path}, {"line", line.number}, {"imported_by", imported_by}}});
        }
    }
}

// Reads the loads of property files out of the events.
class LoadReader {
  public:
    void Opened(const json& event) {
        const size_t depth = event["load_depth"];
        if (depth == 0) return;  // looked up or read, not loaded
        auto load = std::make_unique<Load>();
        load->path = Text(event["path"]);
        load->content = Text(event["content"]);
        Load* opened = load.get();
        loading_.resize(std::min(loading_.size(), depth - 1));
        if (loading_.empty()) {
            loads_.push_back(std::move(load));
        } else {
            loading_.back()->imports.push_back(std::move(load));
        }
        loading_.push_back(opened);
    }

    void Logged(const std::string& message) {
        if (loading_.empty()) return;
        Load* load = loading_.back();
        if (StartsWith(message, "Could not expand filename ': ")) {
            load->imports.push_back(nullptr);
        } else if (StartsWith(message, "Couldn't load property file '" + load->path + "': ")) {
            load->content.clear();
            loading_.pop_back();
        } else if (StartsWith(message, "(Loading properties from " + load->path + " took ")) {
            loading_.pop_back();
        }
    }

    // Returns the assignments since the last time, in order.
    std::vector<Assignment> Take() {
        std::vector<Assignment> assignments;
        for (const auto& load : loads_) Follow(*load, "", nullptr, &assignments);
        loads_.clear();
        loading_.clear();
        return assignments;
    }

  private:
    std::vector<std::unique_ptr<Load>> loads_;
    std::vector<Load*> loading_;  // each imported by the one before
};

// The conditions on which the files that no step of this boot loaded are loaded.
struct Condition {
    const char* path;  // a regular expression
    const char* text;  // with its groups
};

constexpr Condition kConditions[] = {
        {"/mnt/vendor/my_region/(?:global/)?([QLV])/build.prop", "a brand with the letter $1"},
        {"/mnt/vendor/my_product/cust/([^/]+)/build.prop", "ro.tesvo.pipeline.region=$1"},
        {".*/properties/([^/]+)/SimSwitchFirstTime/[^/]+", "sys.sim.switch.first=$1"},
        {".*/properties/([^/]+)/SimSwitchCurrentTime/[^/]+", "sys.sim.switch.current=$1"},
        {".*/properties/([^/]+)/switchCarrierChannel/[^/]+", "persist.sys.channel.info=$1"},
        {".*/properties/([^/]+)/regionSwitch/[^/]+", "sys.region.switch.first=$1"},
        {".*/etc/build\\.(.*)\\.prop", "a flags.prop that maps the old nv key to $1"},
        {"/my_company/etc/build.prop", "step duskrider"},
        {"/my_company/build.prop", "step persist with a new ro.tesvo.image.my_company.date"},
        {"/data/cota/cota_mount_info.prop", "a step cota-service that takes the package"},
        {"/data/cota/cota_module_info.prop", "step cota-service:module_bind_single"},
        {"/data/system/customize/data_common_prop_file.prop", "step persist"},
        {"/data/system/customize/empty_appchannel_prop_file.prop", "step persist"},
        {"/system_ext/etc/build.prop", "nothing: only the brand is looked up in it"},
        {"(/odm|/mnt/vendor/my_[a-z]+(?:/cust|/global)?)/build.prop", "step early"},
        {"(.*)/build.prop", "step early:$1, or a carrier package there"},
        {".*", "an import"},
};

std::string ConditionOf(const std::string& path) {
    std::smatch match;
    for (const Condition& condition : kConditions) {
        if (std::regex_match(path, match, std::regex(condition.path))) {
            return match.format(condition.text);
        }
    }
    return "";
}

class Tracer {
  public:
    // The system properties at the start of a boot.
    void Start(const json& properties, int boot) {
        for (auto& [name, origins] : origins_.items()) {
            json* winner = Winner(name);
            if (winner == nullptr) continue;
            const bool stays = properties.contains(name) && properties[name] == (*winner)["value"];
            if (!stays) (*winner)["fate"] = "gone with the reboot";
        }
        for (const auto& [name, value] : properties.items()) {
            if (Winner(name) != nullptr) continue;
            Add(name, {{"kind", "given"}, {"boot", boot}, {"value", value}}, kWins);
        }
    }

    void Perform(const json& step) {
        LoadReader loads;
        std::vector<Assignment> pending;
        const auto take_loads = [&] {
            std::vector<Assignment> taken = loads.Take();
            std::move(taken.begin(), taken.end(), std::back_inserter(pending));
        };
        for (const json& event : step["events"]) {
            const std::string kind = Text(event["event"]);
            if (kind == "open" && event["for"] == "reading") {
                opened_.insert(Text(event["path"]));
                loads.Opened(event);
            } else if (kind == "log") {
                loads.Logged(Text(event["message"]));
            } else if (kind == "map" || kind == "callback") {
                take_loads();
                HandOver(step, event, &pending);
            } else if (kind == "property" || kind == "request") {
                AddOperation(step, event, Text(event["name"]), event["value"]);
            } else if (kind == "mount" && event["error"].is_null()) {
                binds_.emplace_back(Text(event["source"]) + "/", Text(event["target"]) + "/");
            }
        }
        take_loads();
        for (const Assignment& left : pending) Add(left.name, FileOrigin(step, left), kKept);
    }

    // Adds what the property files that were never opened would have given.
    void AddUnloaded(const json& property_files) {
        for (const json& file : property_files) {
            const std::string path = Text(file["path"]);
            if (WasOpened(path)) continue;
            const std::string content = Text(file["content"]);
            for (const PropertyLine& line : PropertyLines(content)) {
                if (line.kind != PropertyLine::kProperty) continue;
                Add(std::string(line.name),
                    {{"kind", "file"},
                     {"file", path},
                     {"line", line.number},
                     {"value", line.value},
                     {"condition", ConditionOf(path)}},
                    "not loaded");
            }
        }
    }

    json TakeOrigins() { return std::move(origins_); }

  private:
    static constexpr char kWins[] = "wins";
    static constexpr char kOverridden[] = "overridden";
    static constexpr char kKept[] = "not handed on";

    static json FileOrigin(const json& step, const Assignment& assignment) {
        json origin = assignment.place;
        origin.update({{"kind", "file"},
                       {"boot", step["boot"]},
                       {"step", step["step"]},
                       {"value", assignment.value}});
        return origin;
    }

    // What init was given. A value comes from the last of the pending lines that set its name, or
    // else from the operation itself. Lines whose value was not given go on waiting.
    void HandOver(const json& step, const json& event, std::vector<Assignment>* pending) {
        std::map<std::string, const Assignment*> last;
        for (const Assignment& assignment : *pending) last[assignment.name] = &assignment;
        const json& handed = event["properties"];
        const auto is_from_file = [&](const std::string& name) {
            auto found = last.find(name);
            return found != last.end() && handed.contains(name) &&
                   handed[name] == found->second->value;
        };
        std::vector<Assignment> waiting;
        for (const Assignment& assignment : *pending) {
            if (is_from_file(assignment.name)) {
                const bool wins = last[assignment.name] == &assignment;
                Add(assignment.name, FileOrigin(step, assignment), wins ? kWins : kOverridden);
            } else {
                waiting.push_back(assignment);
            }
        }
        for (const auto& [name, value] : handed.items()) {
            const json* winner = Winner(name);
            const bool known = winner != nullptr && (*winner)["value"] == value;
            if (!is_from_file(name) && !known) AddOperation(step, event, name, value);
        }
        *pending = std::move(waiting);
    }

    void AddOperation(const json& step, const json& event, const std::string& name,
                      const json& value) {
        Add(name,
            {{"kind", event["event"] == "request" ? "request" : "operation"},
             {"boot", step["boot"]},
             {"step", step["step"]},
             {"operations", event.value("operations", json::array())},
             {"value", value}},
            kWins);
    }

    // Returns the origin of the property's present value, or null.
    json* Winner(const std::string& name) {
        if (!origins_.contains(name)) return nullptr;
        for (json& origin : origins_[name]) {
            if (origin["fate"] == kWins) return &origin;
        }
        return nullptr;
    }

    void Add(const std::string& name, json origin, const char* fate) {
        if (json* winner = Winner(name); winner != nullptr && std::string_view(fate) == kWins) {
            (*winner)["fate"] = kOverridden;
        }
        origin["fate"] = fate;
        origins_[name].push_back(std::move(origin));
    }

    // Whether the file was opened, under its own path or one that it was bound to.
    bool WasOpened(const std::string& path) const {
        if (opened_.count(path) != 0) return true;
        return std::any_of(binds_.begin(), binds_.end(), [&](const auto& bind) {
            const auto& [source, target] = bind;
            return StartsWith(path, source) &&
                   opened_.count(target + path.substr(source.size())) != 0;
        });
    }

    json origins_ = json::object();
    std::set<std::string> opened_;
    std::vector<std::pair<std::string, std::string>> binds_;
};

}  // namespace

json TraceOrigins(const json& report) {
    Tracer tracer;
    int boot = 0;
    const auto start_boots = [&](int until) {
        while (boot < until) {
            tracer.Start(report["boots"][boot]["properties"], boot + 1);
            ++boot;
        }
    };
    for (const json& step : report["steps"]) {
        start_boots(step["boot"]);
        tracer.Perform(step);
    }
    start_boots(report["boots"].size());
    tracer.AddUnloaded(report["property_files"]);
    return tracer.TakeOrigins();
}

void DropTrace(json* report) {
    report->erase("property_files");
    for (json& step : (*report)["steps"]) {
        for (json& event : step["events"]) {
            event.erase("content");
            event.erase("load_depth");
        }
    }
}

}  // namespace extprop
