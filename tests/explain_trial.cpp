// Tries the statements of `extprop explain --all --json` over random devices: edits the line that
// is said to win, boots again and expects the edit; edits lines that are said to lose and expects
// no change; adds the words that are said to load a line and expects it to be loaded, but not with
// one word less; tries all steps and axes on lines that nothing is said to load; expects every line
// of the device among the origins.
//
// usage: explain_trial DEVICES SEED EXTPROP
//
// Prints each false statement with the command to reproduce it. If there is one, keeps the device
// directory and exits with 1.

#include <ctype.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <nlohmann/json.hpp>

#include "random_device.h"
#include "utils.h"

namespace {

namespace fs = std::filesystem;

using android::base::EndsWith;
using android::base::Join;
using android::base::StartsWith;
using android::base::Trim;
using android::base::unique_fd;
using nlohmann::json;
using Strings = std::vector<std::string>;

constexpr char kNoUtf8[] = "\xef\xbf\xbd";  // in place of bytes that are not UTF-8, in JSON

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

bool IsWordCharacter(unsigned char c) {
    return isalnum(c) || c == '_';
}

std::string Text(const json& value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

Strings Plus(Strings words, const Strings& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

Strings Words(const std::string& text) {
    return android::base::Split(text, " ");
}

// Runs a command of words without quotes and returns its exit status.
int Run(const Strings& words, std::string* output) {
    FILE* pipe = popen(("'" + Join(words, "' '") + "' 2>/dev/null").c_str(), "r");
    CHECK(pipe != nullptr);
    android::base::ReadFdToString(fileno(pipe), output);
    const int status = pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

// Computes, apart from the tool, what the loader takes from a line.
bool Parse(const std::string& line, std::string* name, std::string* value) {
    const std::string text = Trim(line);
    const size_t equals = text.find('=');
    if (text.empty() || text[0] == '#' || equals == std::string::npos) return false;
    *name = Trim(text.substr(0, equals));
    *value = Trim(text.substr(equals + 1));
    return !StartsWith(text, "import ");
}

// A line of the device's own files, from 1.
using FileLine = std::pair<std::string, size_t>;

std::string Text(const FileLine& place) {
    return place.first + ":" + std::to_string(place.second);
}

// A device directory; paths are those of the device.
class Device {
  public:
    explicit Device(const std::string& root)
            : root_(root), fd_(open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

    const std::string& root() const { return root_; }

    // Returns the regular file that `path` leads to, or "".
    std::string Resolve(const std::string& path) const {
        open_how how = {};
        how.flags = O_PATH | O_CLOEXEC;
        how.resolve = RESOLVE_IN_ROOT;
        unique_fd file(syscall(SYS_openat2, fd_.get(), path.c_str(), &how, sizeof(how)));
        std::string target;
        android::base::Readlink("/proc/self/fd/" + std::to_string(file.get()), &target);
        return file.ok() && fs::is_regular_file(target) ? target.substr(root_.size()) : "";
    }

    Strings Read(const std::string& file) const {
        std::string content;
        android::base::ReadFileToString(root_ + file, &content);
        return android::base::Split(content, "\n");
    }

    std::string Line(const FileLine& place) const {
        const Strings lines = Read(place.first);
        return place.first.empty() || place.second > lines.size() ? "" : lines[place.second - 1];
    }

    // Writes in place, because a directory lists its files in the order of their creation.
    void Write(const std::string& file, const Strings& lines) const {
        CHECK(android::base::WriteStringToFile(Join(lines, '\n'), root_ + file));
    }

  private:
    std::string root_;
    unique_fd fd_;
};

// A statement about an origin, and the edit that tries it, of a line or, without a place, of a word
// of the command line. If the origin wins, the property's final value follows the edit, else it
// stays.
struct Claim {
    std::string name;
    json origin;
    bool wins;
    FileLine place;
    size_t word;
    std::string fresh;
};

// The properties that a boot results in, and its way: what it asks for and hands over, without the
// values.
struct Outcome {
    json properties = json::object();
    std::string way;
};

std::string WayOf(const json& boot) {
    std::string way;
    for (const json& step : boot["steps"]) {
        for (const json& event : step["events"]) {
            const std::string kind = event["event"];
            if (kind == "open") way += Text(event["path"]) + Text(event["for"]);
            if (kind == "mount") way += Text(event["source"]) + Text(event["target"]);
            if (kind == "mount") way += Text(event["error"]);
            if (kind == "property" || kind == "request") way += Text(event["name"]);
            if (kind != "callback") continue;
            way += Text(event["mode"]);
            for (const auto& property : event["properties"].items()) way += property.key() + ",";
        }
    }
    return way;
}

struct Totals {
    size_t boots = 0;
    size_t found_false = 0;
    std::map<std::string, size_t> statements;
    std::map<std::string, size_t> skipped;
};

// The trial of one device.
class Trial {
  public:
    Trial(const std::string& extprop, const std::string& root, Strings words, Totals* totals)
            : extprop_(extprop), device_(root), words_(std::move(words)), totals_(*totals) {
        for (size_t i = 0; i < words_.size(); ++i) {
            const bool is_value = i > 0 && StartsWith(words_[i - 1], "--");
            has_steps_ |= !is_value && !StartsWith(words_[i], "--");
        }
        for (size_t i = 0; i + 1 < words_.size(); ++i) {
            has_keys_ |= StartsWith(words_[i], "--sim-") || words_[i] == "--channel" ||
                         words_[i] == "--region-key";
            if (words_[i] == "--brand") replaced_.insert("ro.tesvo.image.system_ext.brand");
            if (words_[i] == "--region") replaced_.insert("ro.tesvo.pipeline.region");
            if (words_[i] != "--edit") continue;
            const size_t name = words_[i + 1].find(':') + 1;
            replaced_.insert(words_[i + 1].substr(name, words_[i + 1].find('=') - name));
        }
    }

    void Judge() {
        const json boot = Read("boot", words_);
        const json explained = Read("explain", words_);
        if (boot.is_null() || explained.is_null()) return False({}, "boot or explain failed");
        outcome_ = {boot["properties"], WayOf(boot)};
        for (const json& step : boot["steps"]) NoteStep(step);
        ReadLint();
        for (const json& property : explained["properties"]) JudgeProperty(property);
        JudgeCompleteness();
        for (const bool wins : {true, false}) {
            std::vector<const Claim*> claims;
            for (const Claim& claim : claims_) {
                if (claim.wins == wins) claims.push_back(&claim);
            }
            // Properties that may steer the boot come last, so that halving separates them.
            std::stable_partition(claims.begin(), claims.end(), [](const Claim* claim) {
                return Contains(claim->name, "t.") && !Contains(claim->name, "tesvo");
            });
            JudgeClaims(claims);
        }
        for (const auto& [requires, lines] : requirements_) {
            requires.is_null() ? JudgeNothing(lines) : JudgeRequires(requires, lines);
        }
        JudgeAlone(explained);
        JudgeText();
    }

  private:
    void False(const json& statement, const std::string& what) {
        ++totals_.found_false;
        std::cout << "FALSE " << what << "\n  said: " << Text(statement) << "\n  by: " << extprop_
                  << " explain " << device_.root() << " --all --json " << Join(words_, ' ') << "\n";
    }

    void Skip(const Claim& claim, const std::string& why) {
        const std::string fate = claim.origin["fate"];
        --totals_.statements[fate];
        ++totals_.skipped[fate + ": " + why];
    }

    json Read(const std::string& command, const Strings& words) {
        Strings line = {extprop_, command, device_.root(), "--json"};
        if (command == "explain") line.push_back("--all");
        std::string output;
        ++totals_.boots;
        return Run(Plus(line, words), &output) == 0 ? json::parse(output) : json();
    }

    void NoteStep(const json& step) {
        for (const json& file : step["files"]) written_.insert(file["path"]);
        for (const json& event : step["events"]) {
            const std::string kind = event["event"];
            if (kind == "mount") has_mount_ = true;
            if (kind == "open" && event["for"] == "reading") opened_.insert(event["path"]);
            json handed = event.value("properties", json::object());
            if (kind == "property" || kind == "request") {
                handed[event["name"].get<std::string>()] = event["value"];
            }
            for (const auto& property : handed.items()) {
                handed_.insert(json::array(
                        {step["boot"], step["step"], property.key(), property.value()}));
            }
        }
    }

    // Returns a property's final value, or null.
    static json ValueOf(const Outcome& outcome, const std::string& name) {
        return outcome.properties.value(name, json());
    }

    static bool IsSwitchKey(const std::string& name) {
        return name == "sys.sim.switch.first" || name == "sys.sim.switch.current" ||
               name == "sys.region.switch.first" || name == "persist.sys.channel.info";
    }

    static bool IsRefused(const std::string& name, const std::string& value) {
        return Contains(value, kNoUtf8) || !IsLegalPropertyName(name) ||
               !IsLegalPropertyValue(name, value).ok();
    }

    void JudgeProperty(const json& property) {
        const std::string name = property["name"];
        const json value = ValueOf(outcome_, name);
        ++totals_.statements["property"];
        explained_.insert(name);
        if (property["value"] != value) False(property, "boot says " + Text(value));
        if (value.is_string() && IsRefused(name, value)) False(property, "init would refuse it");
        int winners = 0;
        int given = 0;
        for (const json& origin : property["origins"]) given += origin["kind"] == "given";
        if (given > 0) given_.insert(name);
        for (const json& origin : property["origins"]) {
            ++totals_.statements[origin["fate"]];
            if (origin["fate"] == "wins") {
                ++winners;
                if (origin["kind"] == "operation") derived_.insert(name);
                if (origin["value"] != value) False(property, "the winner has another value");
                const json handed =
                        json::array({origin["boot"], origin.value("step", json()), name, value});
                if (origin["kind"] != "given" && handed_.count(handed) == 0) {
                    False(property, "that step did not give init the value");
                }
            }
            JudgeOrigin(name, origin, given);
        }
        if (winners != value.is_string()) False(property, std::to_string(winners) + " winners");
    }

    void JudgeOrigin(const std::string& name, const json& origin, int given) {
        const std::string kind = origin["kind"];
        const std::string value = origin["value"];
        const bool refused = origin["fate"] == "refused";
        if (refused && !IsRefused(name, value)) False(origin, "the library says that it is legal");
        Claim claim = {name, origin, origin["fate"] == "wins", {}, 0, FreshValue(origin, name)};
        const json operations = origin.value("operations", json::array());
        for (const std::string operation : operations) {
            if (!std::all_of(operation.begin(), operation.end(), IsWordCharacter)) {
                False(origin, operation + " is no name of an operation");
            }
        }
        if (kind == "operation" && operations.empty() && !HasBindThread()) {
            False(origin, name + " comes from no operation");
        } else if (kind == "given") {
            for (size_t i = 1; i < words_.size(); ++i) {
                if (words_[i - 1] == "--set" && StartsWith(words_[i], name + "=")) claim.word = i;
            }
            if (given > 1) return Skip(claim, "one option gave it in several boots");
            if (claim.word == 0 && has_keys_ && IsSwitchKey(name)) {
                return Skip(claim, "a what-if option sets it");
            }
            if (claim.word == 0) return False(origin, name + " was not given");
            claims_.push_back(claim);
        } else if (kind == "file") {
            claim.place = PlaceOf(origin);
            if (replaced_.count(name) != 0 || (has_keys_ && IsSwitchKey(name)))
                return Skip(claim, "a what-if option sets it");
            std::string own_name, own_value;
            if (!Parse(device_.Line(claim.place), &own_name, &own_value) || own_name != name ||
                (own_value != value && !Contains(value, kNoUtf8))) {
                if (written_.count(origin["file"]) != 0) return Skip(claim, "the boot wrote it");
                return False(origin, "no such line of " + name);
            }
            if (!places_.insert({claim.place, name}).second) False(origin, "listed twice");
            JudgeImport(origin);
            if (refused && EndsWith(claim.place.first, ".prop")) {
                ++totals_.statements["lint"];
                if (refused_.count(claim.place) == 0) False(origin, "lint does not see it refused");
            }
            if (origin.contains("requires")) {
                ++totals_.statements[origin["requires"].is_null() ? "requires null" : "requires"];
                requirements_[origin["requires"]].push_back(claim);
            }
            claims_.push_back(claim);
        }
    }

    // Returns the line of the device that an origin is about, with an empty file if there is none.
    FileLine PlaceOf(const json& origin) const {
        const json source = origin.value("source", json());
        return {device_.Resolve(source.is_null() ? origin["file"] : source),
                origin["line"].get<size_t>()};
    }

    // Returns a value that occurs nowhere else. init refuses it if it refused the old one.
    std::string FreshValue(const json& origin, const std::string& name) {
        const std::string fresh = "fresh" + std::to_string(++fresh_);
        const std::string value = origin["value"];
        if (origin["fate"] != "refused") return fresh;
        if (Contains(value, kNoUtf8)) return "\xff" + fresh;
        return StartsWith(name, "ro.") ? fresh : std::string(92, 'y') + fresh;
    }

    void JudgeImport(const json& origin) {
        const json importer = origin.value("imported_by", json());
        const std::string by = importer.is_null() ? "" : importer.get<std::string>();
        if (by.empty() || has_mount_ || !replaced_.empty()) return;
        const size_t colon = by.rfind(':');
        const std::string line = device_.Line(
                {device_.Resolve(by.substr(0, colon)), std::stoul(by.substr(colon + 1))});
        const json filter = origin.value("filter", json());
        if (!StartsWith(Trim(line), "import ")) False(origin, by + " is no import");
        if (filter.is_string() && !EndsWith(Trim(line), " " + filter.get<std::string>())) {
            False(origin, by + " has another filter");
        }
    }

    // Records the lines that init refuses according to lint.
    void ReadLint() {
        std::string output;
        Run({extprop_, "lint", device_.root(), "--json"}, &output);
        const json lint = json::parse(output);
        for (const json& finding : lint["findings"]) {
            const std::string what = finding["identifier"];
            if (what != "illegal-name" && what != "value-too-long" && what != "not-utf8") continue;
            json places = finding["others"];
            places.push_back(finding);
            for (const json& place : places) {
                const std::string file = place["file"];
                refused_.insert({file.substr(device_.root().size()), place["line"].get<size_t>()});
            }
        }
    }

    // Returns every file that holds properties by its name or place, or because a line names it.
    Strings PropertyFiles() const {
        Strings found(opened_.begin(), opened_.end());
        for (const auto& entry : fs::recursive_directory_iterator(device_.root())) {
            const std::string path = entry.path().string().substr(device_.root().size());
            if (EndsWith(path, ".prop") || Contains(path, "/properties/") ||
                Contains(path, "/tesvoreserve/system/") || Contains(path, "/customize/")) {
                found.push_back(path);
            }
        }
        Strings files;
        for (size_t i = 0; i < found.size(); ++i) {
            const std::string file = device_.Resolve(found[i]);
            if (file.empty() || std::count(files.begin(), files.end(), file) != 0) continue;
            if (EndsWith(file, "/devicename.cfg"))
                continue;  // it holds no properties, but input of derived ones
            files.push_back(file);
            for (const std::string& line : device_.Read(file)) {
                std::string word, target;
                std::istringstream(line) >> word >> target;
                if (word == "import") found.push_back(target);
            }
        }
        return files;
    }

    void JudgeCompleteness() {
        for (const auto& property : outcome_.properties.items()) {
            if (explained_.count(property.key()) == 0) False({}, property.key() + " is missing");
        }
        for (size_t i = 1; i < words_.size(); ++i) {
            const std::string name = words_[i].substr(0, words_[i].find('='));
            if (words_[i - 1] != "--set") continue;
            ++totals_.statements["complete"];
            if (given_.count(name) == 0) False({}, words_[i] + " is missing");
        }
        for (const std::string& file : PropertyFiles()) {
            const Strings lines = device_.Read(file);
            for (size_t i = 0; i < lines.size(); ++i) {
                std::string name, value;
                if (!Parse(lines[i], &name, &value) || replaced_.count(name) != 0) continue;
                if (has_keys_ && IsSwitchKey(name)) continue;
                ++totals_.statements["complete"];
                const FileLine place(file, i + 1);
                if (places_.count({place, name}) == 0) False(lines[i], Text(place) + " is missing");
            }
        }
    }

    // Makes the edits, boots, and undoes them.
    Outcome BootEdited(const std::vector<const Claim*>& claims) {
        Strings words = words_;
        std::map<std::string, Strings> files;
        for (const Claim* claim : claims) {
            const auto& [file, line] = claim->place;
            if (file.empty()) {
                words[claim->word] = claim->name + "=" + claim->fresh;
                continue;
            }
            std::string& text = files.try_emplace(file, device_.Read(file)).first->second[line - 1];
            text = text.substr(0, text.find('=') + 1) + claim->fresh;
        }
        for (auto& [file, lines] : files) {
            const Strings edited = lines;
            lines = device_.Read(file);
            device_.Write(file, edited);
        }
        const json boot = Read("boot", words);
        for (const auto& [file, lines] : files) device_.Write(file, lines);
        return boot.is_null() ? Outcome{} : Outcome{boot["properties"], WayOf(boot)};
    }

    // Judges claims of one kind by one boot with all their edits. That is conclusive if the edits
    // do not change the way of the boot; otherwise it boots with fewer of them.
    void JudgeClaims(const std::vector<const Claim*>& claims) {
        if (claims.empty()) return;
        const Outcome edited = BootEdited(claims);
        const bool same_way = edited.way == outcome_.way;
        std::vector<const Claim*> doubtful;
        for (const Claim* claim : claims) {
            const json expected = claim->wins ? json(claim->fresh) : ValueOf(outcome_, claim->name);
            const bool holds = ValueOf(edited, claim->name) == expected;
            if (!holds || (claims.size() > 1 && !same_way)) doubtful.push_back(claim);
        }
        if (claims.size() > 1) {
            const auto half = doubtful.begin() + doubtful.size() / 2;
            JudgeClaims({doubtful.begin(), half});
            JudgeClaims({half, doubtful.end()});
        } else if (!doubtful.empty()) {
            JudgeChange(*claims[0], ValueOf(edited, claims[0]->name), same_way);
        }
    }

    // Judges whether the value after an edit, which is not the claimed one, makes the claim false.
    void JudgeChange(const Claim& claim, const json& now, bool same_way) {
        if (!same_way) return Skip(claim, "the edit changes what the boot does");
        if (derived_.count(claim.name) != 0 && now.is_string() && now != claim.fresh &&
            Contains(now, claim.fresh)) {
            return Skip(claim, "the winning operation makes its value of it");
        }
        False(claim.origin, claim.name + " was " + Text(ValueOf(outcome_, claim.name)) + ", is " +
                                    Text(now) + " with " + claim.fresh + " at " +
                                    (claim.word != 0 ? "--set" : Text(claim.place)));
    }

    // Returns the words of the boot and more. Steps among these need the default steps before them.
    Strings With(const Strings& more) const {
        Strings words = words_;
        if (!has_steps_ && !more.empty() && !StartsWith(more.front(), "--")) {
            words = Plus(words, {"early", "persist"});
        }
        return Plus(words, more);
    }

    // Returns those of the claims' lines that a boot of these words loads.
    std::vector<const Claim*> Loaded(const std::vector<Claim>& claims, const Strings& words) {
        std::multimap<std::string, std::string> loads;  // files and filters
        const json boot = Read("boot", words);
        if (boot.is_null()) return {};
        for (const json& step : boot["steps"]) {
            const json& events = step["events"];
            for (size_t i = 0; i < events.size(); ++i) {
                const json& load = events[i];
                if (load["event"] != "load" || load["written"]) continue;
                // The load event comes before the open, which may fail.
                size_t next = i + 1;
                while (next < events.size() && events[next]["event"] == "open") ++next;
                if (next < events.size() && events[next]["event"] == "log" &&
                    StartsWith(events[next]["message"].get<std::string>(),
                               "Couldn't load property file")) {
                    continue;
                }
                const json& source = load["source"];
                const json& filter = load["filter"];
                loads.emplace(device_.Resolve(source.is_null() ? load["path"] : source),
                              filter.is_null() ? "" : filter.get<std::string>());
            }
        }
        std::vector<const Claim*> found;
        for (const Claim& claim : claims) {
            const auto [begin, end] = loads.equal_range(claim.place.first);
            const bool is_loaded = std::any_of(begin, end, [&](const auto& load) {
                const std::string& filter = load.second;
                if (EndsWith(filter, "*")) {
                    return StartsWith(claim.name, filter.substr(0, filter.size() - 1));
                }
                return filter.empty() || filter == claim.name;
            });
            if (is_loaded) found.push_back(&claim);
        }
        return found;
    }

    void JudgeRequires(const Strings& more, const std::vector<Claim>& claims) {
        const std::vector<const Claim*> loaded = Loaded(claims, Plus(words_, more));
        for (const Claim& claim : claims) {
            if (std::find(loaded.begin(), loaded.end(), &claim) != loaded.end()) continue;
            False(claim.origin, claim.name + " is not loaded by what it requires");
        }
        for (size_t i = 0; i < more.size(); ++i) {
            // The default steps are named only because another step follows them.
            const bool is_default = !has_steps_ && (more[i] == "early" || more[i] == "persist");
            if (is_default && i + 1 < more.size()) continue;
            Strings fewer = more;
            const auto at = fewer.begin() + static_cast<long>(i);
            const bool is_option = StartsWith(more[i], "--");
            fewer.erase(at, at + (is_option ? 2 : 1));
            ++totals_.statements["one word less"];
            for (const Claim* claim : Loaded(claims, Plus(words_, fewer))) {
                False(claim->origin, claim->name + " is loaded without " + more[i]);
            }
            i += is_option ? 1 : 0;
        }
    }

    // Tries to load lines that nothing is said to load: with each value of each axis, with pairs of
    // axes, and with each step.
    void JudgeNothing(const std::vector<Claim>& claims) {
        std::string output;
        Run({extprop_, "matrix", "--list", "--json", device_.root()}, &output);
        std::vector<Strings> attempts;
        std::vector<Strings> before;  // the values of the axes so far
        const json list = json::parse(output);
        for (const auto& axis : list["axes"].items()) {
            std::vector<Strings> values;
            for (const std::string value : axis.value())
                values.push_back({"--" + axis.key(), value});
            for (const Strings& value : values) {
                attempts.push_back(value);
                for (const Strings& other : before) attempts.push_back(Plus(other, value));
            }
            before.insert(before.end(), values.begin(), values.end());
        }
        for (const std::string& step :
             Words("early persist sim sim:simSwitchFirst sim:simSwitchCurrent sim:regionSwitch "
                   "cota "
                   "sim:switchCarrierChannel sim:updateDataCommonProp sim:emptyAppchannelProp "
                   "duskrider cota-service:mount_and_check_load cota-service:mount_must_load "
                   "cota-service:bind_basic_point cota-service:update_cota_info "
                   "cota-service:module_bind_single")) {
            attempts.push_back({step});
            attempts.push_back({"reboot", step});
        }
        for (const char* file : {"a", "b"}) {
            for (const char* name : {"ro.ref.0=", "ro.ref.1="}) {
                attempts.push_back({"--set", std::string(name) + file});
            }
            for (const char* other : {"a", "b"}) {
                attempts.push_back({"--set", std::string("ro.ref.0=") + file, "--set",
                                    std::string("ro.ref.1=") + other});
            }
        }
        for (const Claim& claim : claims) {
            attempts.push_back({"early:" + fs::path(claim.place.first).parent_path().string()});
        }
        for (const Strings& more : attempts) {
            ++totals_.statements["tried by force"];
            for (const Claim* claim : Loaded(claims, With(more))) {
                False(claim->origin, claim->name + " is loaded by " + Join(more, ' '));
            }
        }
    }

    // Expects the same for one name alone as among all names.
    void JudgeAlone(const json& explained) {
        const json& properties = explained["properties"];
        if (properties.empty()) return;
        const json& property = properties[fresh_ % properties.size()];
        ++totals_.statements["alone"];
        std::string output;
        const std::string name = property["name"];
        if (Contains(name, "'") || Contains(name, kNoUtf8) || name.empty()) return;
        Run(Plus({extprop_, "explain", device_.root(), name, "--json"}, words_), &output);
        const json alone = json::parse(output);
        for (const json& other : alone["properties"]) {
            if (other["name"] == name && other != property) {
                False(property, name + " alone is " + Text(other));
            }
        }
    }

    bool HasBindThread() const {
        return std::count(words_.begin(), words_.end(), "cota-service:check_mount") != 0;
    }

    void JudgeText() {
        std::string text;
        ++totals_.statements["text"];
        if (Run(Plus({extprop_, "explain", device_.root(), "--all"}, words_), &text) != 0 ||
            (Contains(text, "bind thread") && !HasBindThread())) {
            False({}, "the text fails, or tells of a bind thread");
        }
    }

    const std::string extprop_;
    const Device device_;
    const Strings words_;
    Totals& totals_;
    std::set<std::string> replaced_;  // names that what-if options set
    Outcome outcome_;
    bool has_mount_ = false;
    bool has_steps_ = false;
    bool has_keys_ = false;  // what-if options set switch keys
    std::set<std::string> written_, opened_, explained_, given_;
    std::set<std::string> derived_;  // names whose winner is an operation
    std::set<json> handed_;          // boot, step, name, value
    std::set<FileLine> refused_;
    size_t fresh_ = 0;
    std::vector<Claim> claims_;
    std::set<std::pair<FileLine, std::string>> places_;
    std::map<json, std::vector<Claim>> requirements_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: explain_trial DEVICES SEED EXTPROP\n";
        return 2;
    }
    setlocale(LC_CTYPE, "C.UTF-8");  // the encoding of the device's C locale
    const auto start = std::chrono::steady_clock::now();
    const size_t devices = strtoull(argv[1], nullptr, 0);
    const uint64_t seed = strtoull(argv[2], nullptr, 0);
    std::string help;
    Run({argv[3], "explain", "--help"}, &help);
    std::string directory = fs::temp_directory_path() / "explain_trial.XXXXXX";
    CHECK(mkdtemp(directory.data()) != nullptr);

    Totals totals;
    for (size_t i = 0; i < devices; ++i) {
        const size_t before = totals.found_false;
        const std::string root = directory + "/" + std::to_string(seed + i);
        // Without time limits, so that a busy machine does not change what is printed.
        const Strings words = Plus(MakeRandomDevice(root, seed + i, Contains(help, "--region")),
                                   {"--timeout", "600"});
        Trial(argv[3], root, words, &totals).Judge();
        if (totals.found_false == before) fs::remove_all(root);
    }
    if (totals.found_false == 0) fs::remove_all(directory);

    size_t statements = 0;
    for (const auto& [kind, count] : totals.statements) {
        statements += count;
        std::cout << kind << ": " << count << "\n";
    }
    for (const auto& [why, count] : totals.skipped) {
        std::cout << "skipped, " << why << ": " << count << "\n";
    }
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    std::cout << "seed " << seed << ", " << devices << " devices, " << totals.boots << " boots in "
              << time.count() << " s: " << totals.found_false << " of " << statements
              << " statements are false\n";
    return totals.found_false == 0 ? 0 : 1;
}
