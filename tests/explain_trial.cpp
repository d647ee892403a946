// Takes `extprop explain --all --json` at its word over random devices: edits the line that is said
// to win, boots again and looks for the edit; edits those that are said to lose and looks for no
// change; adds the words that are said to load a line and looks for the line.
//
// usage: explain_trial DEVICES SEED EXTPROP
//
// Prints every false statement with what it takes to see it again, and exits with 1 if there is
// one; its device directory is kept then.

#include <fcntl.h>
#include <linux/openat2.h>
#include <locale.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/strings.h>
#include <nlohmann/json.hpp>

#include "random_device.h"
#include "utils.h"

namespace {

namespace fs = std::filesystem;

using android::base::EndsWith;
using android::base::StartsWith;
using android::base::Trim;
using nlohmann::json;
using Strings = std::vector<std::string>;

// Runs a program and returns its exit status.
int Run(const Strings& command, std::string* output) {
    int ends[2];
    CHECK(pipe2(ends, O_CLOEXEC) == 0);
    const pid_t child = fork();
    if (child == 0) {
        std::vector<char*> arguments;
        for (const std::string& word : command)
            arguments.push_back(const_cast<char*>(word.c_str()));
        arguments.push_back(nullptr);
        dup2(ends[1], STDOUT_FILENO);
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    close(ends[1]);
    android::base::ReadFdToString(ends[0], output);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

// What the loader takes of a line, reckoned anew.
struct Assignment {
    std::string name;
    std::string value;
};

bool Parse(const std::string& line, Assignment* assignment) {
    const std::string text = Trim(line);
    const size_t equals = text.find('=');
    if (text.empty() || text[0] == '#' || equals == std::string::npos) return false;
    if (StartsWith(text, "import ")) return false;
    *assignment = {Trim(text.substr(0, equals)), Trim(text.substr(equals + 1))};
    return true;
}

// A place in the device's own files; `line` counts from 1.
struct Place {
    std::string file;
    size_t line = 0;
    bool operator<(const Place& other) const {
        return std::tie(file, line) < std::tie(other.file, other.line);
    }
};

// A device directory whose paths are those of the device.
class Device {
  public:
    explicit Device(const std::string& root)
            : root_(root), fd_(open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}
    ~Device() { close(fd_); }

    const std::string& root() const { return root_; }

    // Returns the path of the regular file that `path` leads to, or "".
    std::string Resolve(const std::string& path) const {
        open_how how = {};
        how.flags = O_PATH | O_CLOEXEC;
        how.resolve = RESOLVE_IN_ROOT;
        const int file = syscall(SYS_openat2, fd_, path.c_str(), &how, sizeof(how));
        if (file < 0) return "";
        std::string target;
        android::base::Readlink("/proc/self/fd/" + std::to_string(file), &target);
        close(file);
        return fs::is_regular_file(target) ? target.substr(root_.size()) : "";
    }

    Strings Lines(const std::string& file) const {
        std::string content;
        android::base::ReadFileToString(root_ + file, &content);
        return android::base::Split(content, "\n");
    }

    void Write(const std::string& file, const Strings& lines) const {
        CHECK(android::base::WriteStringToFile(android::base::Join(lines, '\n'), root_ + file));
    }

  private:
    std::string root_;
    int fd_;
};

// Something that explain said and a boot can disprove: that the property's final value follows the
// place or the --set word `word`, or does not.
struct Claim {
    json statement;
    std::string name;
    bool wins;
    Place place;
    size_t word = 0;  // where the place has no file
    std::string fresh;
};

// What a boot comes to, and the way that it took there.
struct Outcome {
    json properties;
    std::string way;
};

class Trial {
  public:
    Trial(const std::string& extprop, const std::string& directory)
            : extprop_(extprop), directory_(directory) {
        std::string help;
        Run({extprop_, "explain", "--help"}, &help);
        has_what_if_ = help.find("--region") != std::string::npos;
    }

    void Judge(uint64_t seed) {
        const std::string root = directory_ + "/" + std::to_string(seed);
        fs::create_directories(root);
        seed_ = seed;
        words_ = MakeRandomDevice(root, seed);
        device_ = std::make_unique<Device>(root);
        statements_before_ = statements_;
        const size_t false_before = false_;
        JudgeDevice();
        device_.reset();
        if (false_ == false_before) fs::remove_all(root);
    }

    size_t statements() const { return statements_; }
    size_t false_statements() const { return false_; }
    size_t boots() const { return boots_; }
    const std::map<std::string, size_t>& kinds() const { return kinds_; }
    const std::map<std::string, size_t>& skipped() const { return skipped_; }

  private:
    void State(const std::string& kind) {
        ++statements_;
        ++kinds_[kind];
    }

    void False(const json& statement, const std::string& what) {
        ++false_;
        std::cout << "FALSE " << what << "\n  statement: "
                  << statement.dump(-1, ' ', false, json::error_handler_t::replace) << "\n  seed "
                  << seed_ << ": " << extprop_ << " explain " << device_->root() << " --all --json "
                  << android::base::Join(words_, ' ') << "\n";
    }

    json Read(const std::string& command, const Strings& words, const Strings& options) {
        Strings line = {extprop_, command, device_->root()};
        line.insert(line.end(), options.begin(), options.end());
        line.insert(line.end(), words.begin(), words.end());
        std::string output;
        const int status = Run(line, &output);
        ++boots_;
        return status == 0 ? json::parse(output) : json();
    }

    // The way that a boot takes: what it asks for and hands over, whatever the values are.
    static std::string Way(const json& boot) {
        std::string way;
        for (const json& step : boot["steps"]) {
            for (const json& event : step["events"]) {
                const std::string kind = event["event"];
                if (kind == "open") {
                    way += event["path"].get<std::string>() + event["for"].get<std::string>();
                } else if (kind == "mount") {
                    way += event["source"].get<std::string>() + event["target"].get<std::string>() +
                           event["error"].dump();
                } else if (kind == "callback") {
                    way += event["mode"].dump();
                    for (const auto& [name, value] : event["properties"].items()) way += name + ",";
                } else if (kind == "property" || kind == "request") {
                    way += event["name"].get<std::string>();
                }
                way += "\n";
            }
        }
        return way;
    }

    Outcome Boot(const Strings& words) {
        const json boot = Read("boot", words, {"--json"});
        if (boot.is_null()) return {json::object(), "failed"};
        return {boot["properties"], Way(boot)};
    }

    // Boots with the claims' edits made, and unmakes them.
    Outcome BootEdited(const std::vector<Claim*>& claims) {
        Strings words = words_;
        std::map<std::string, Strings> before;
        for (const Claim* claim : claims) {
            if (claim->place.file.empty()) {
                words[claim->word] = claim->name + "=" + claim->fresh;
                continue;
            }
            const auto [file, is_new] = before.try_emplace(claim->place.file);
            if (is_new) file->second = device_->Lines(claim->place.file);
            Strings lines = device_->Lines(claim->place.file);
            std::string& line = lines[claim->place.line - 1];
            line = line.substr(0, line.find('=') + 1) + claim->fresh;
            device_->Write(claim->place.file, lines);
        }
        Outcome outcome = Boot(words);
        for (const auto& [file, lines] : before) device_->Write(file, lines);
        return outcome;
    }

    bool Holds(const Claim& claim, const Outcome& outcome) const {
        const json& now = outcome.properties;
        if (claim.wins) return now.contains(claim.name) && now[claim.name] == claim.fresh;
        return now.value(claim.name, json()) == outcome_.properties.value(claim.name, json());
    }

    // Judges claims of one kind by the boot of all their edits, which tells as long as the edits
    // change values only. Where they change the way of the boot it takes boots of fewer edits.
    void JudgeClaims(std::vector<Claim*> claims) {
        if (claims.empty()) return;
        const Outcome edited = BootEdited(claims);
        const bool same_way = edited.way == outcome_.way;
        if (claims.size() > 1) {
            std::vector<Claim*> doubtful;
            for (Claim* claim : claims) {
                if (!same_way || !Holds(*claim, edited)) doubtful.push_back(claim);
            }
            const auto half = doubtful.begin() + doubtful.size() / 2;
            JudgeClaims({doubtful.begin(), half});
            JudgeClaims({half, doubtful.end()});
            return;
        }
        const Claim& claim = *claims[0];
        if (Holds(claim, edited)) return;
        if (!same_way) {
            Skip(claim.statement, "the edit changes what the boot does");
            return;
        }
        const json now = edited.properties.value(claim.name, json());
        const json was = outcome_.properties.value(claim.name, json());
        if (!claim.wins && now.is_string() && now != claim.fresh &&
            now.get<std::string>().find(claim.fresh) != std::string::npos) {
            Skip(claim.statement, "the winning operation derives its value from the line's");
            return;
        }
        False(claim.statement,
              claim.name + " was " + Text(was) + " and is " + Text(now) + " where " +
                      (claim.place.file.empty()
                               ? "the option"
                               : claim.place.file + ":" + std::to_string(claim.place.line)) +
                      " gives " + claim.fresh);
    }

    static std::string Text(const json& value) {
        return value.dump(-1, ' ', false, json::error_handler_t::replace);
    }

    void Skip(const json& statement, const std::string& why) {
        --statements_;
        --kinds_[statement["fate"]];
        ++skipped_[statement["fate"].get<std::string>() + ": " + why];
    }

    // Returns the device's own line that an origin is about; no file where there is none.
    Place PlaceOf(const json& origin) const {
        const json source = origin.value("source", json());
        const std::string path = source.is_null() ? origin["file"] : source;
        return {device_->Resolve(path), origin["line"]};
    }

    // A fresh value which init refuses if it refuses the old one.
    std::string FreshValue(const json& origin, const std::string& name) {
        const std::string fresh = "fresh" + std::to_string(++fresh_);
        if (origin["fate"] != "refused") return fresh;
        const std::string old = origin["value"];
        if (old.size() > 91 && !StartsWith(name, "ro.")) return std::string(92, 'y') + fresh;
        return old.find("\xef\xbf\xbd") == std::string::npos ? fresh : "\xff" + fresh;
    }

    bool IsLegal(const std::string& name, const std::string& value) const {
        return IsLegalPropertyName(name) && IsLegalPropertyValue(name, value).ok();
    }

    void JudgeDevice() {
        const json boot = Read("boot", words_, {"--json"});
        const json explained = Read("explain", words_, {"--all", "--json"});
        if (boot.is_null() || explained.is_null()) {
            False({}, "boot or explain failed");
            return;
        }
        outcome_ = {boot["properties"], Way(boot)};
        written_.clear();
        opened_.clear();
        for (const json& step : boot["steps"]) {
            for (const json& file : step["files"]) written_.insert(file["path"]);
            for (const json& event : step["events"]) {
                if (event["event"] == "open" && event["for"] == "reading") {
                    opened_.insert(event["path"].get<std::string>());
                }
            }
        }
        claims_.clear();
        places_.clear();
        requirements_.clear();
        for (const json& property : explained["properties"]) JudgeProperty(property);
        for (const auto& [name, value] : outcome_.properties.items()) {
            if (names_.count(name) == 0) False({}, name + " is set but not explained");
        }
        names_.clear();
        JudgeCompleteness();
        for (const bool wins : {true, false}) {
            std::vector<Claim*> claims;
            // What may steer the boot stands together, behind what does not.
            for (const bool plain : {true, false}) {
                for (Claim& claim : claims_) {
                    const bool is_plain = claim.name.find("t.") != std::string::npos;
                    if (claim.wins == wins && is_plain == plain) claims.push_back(&claim);
                }
            }
            JudgeClaims(claims);
        }
        for (const auto& [requires, lines] : requirements_) JudgeRequirement(requires, lines);
        JudgeText();
    }

    void JudgeProperty(const json& property) {
        const std::string name = property["name"];
        names_.insert(name);
        State("property");
        const json value = outcome_.properties.value(name, json());
        size_t winners = 0;
        std::set<size_t> givens;
        for (const json& origin : property["origins"]) {
            State(origin["fate"]);
            if (origin["fate"] == "wins") {
                ++winners;
                if (origin["value"] != value) False(property, "the winner's value is another");
            }
            JudgeOrigin(name, origin, property["origins"]);
        }
        if (property["value"] != value) False(property, "boot has another value");
        if (winners != (value.is_null() ? 0 : 1)) {
            False(property, std::to_string(winners) + " winners");
        }
    }

    void JudgeOrigin(const std::string& name, const json& origin, const json& origins) {
        const std::string kind = origin["kind"];
        const std::string fate = origin["fate"];
        const bool wins = fate == "wins";
        if (fate == "refused") {
            const std::string old = origin["value"];
            const bool is_utf8 = old.find("\xef\xbf\xbd") == std::string::npos;
            if (is_utf8 && IsLegal(name, old)) False(origin, "the library would not refuse it");
        }
        Claim claim = {origin, name, wins, {}, 0, ""};
        if (kind == "given") {
            const auto same = [&](const json& other) {
                return other["kind"] == "given" && &other != &origin;
            };
            if (std::any_of(origins.begin(), origins.end(), same)) {
                Skip(origin, "one option stands for an origin in each boot");
                return;
            }
            for (size_t i = 0; i < words_.size(); ++i) {
                if (StartsWith(words_[i], name + "=")) claim.word = i;
            }
            if (claim.word == 0) return False(origin, "it was not given");
        } else if (kind == "file") {
            claim.place = PlaceOf(origin);
            Assignment line;
            if (!HasLine(claim.place, &line) || line.name != name || !IsValue(origin, line.value)) {
                if (written_.count(origin["file"]) == 0) return False(origin, "no such line");
                Skip(origin, "the boot wrote the line");
                return;
            }
            if (!places_.insert({claim.place, name}).second) False(origin, "listed twice");
            if (origin.contains("requires")) {
                State(origin["requires"].is_null() ? "requires null" : "requires");
                requirements_[origin["requires"]].push_back({name, claim.place, origin});
            }
        } else {
            if (kind == "operation") {
                const bool by_thread = HasWord("cota-service:check_mount");
                if (origin["operations"].empty() && !by_thread) False(origin, "no operation");
            }
            return;
        }
        claim.fresh = FreshValue(origin, name);
        claims_.push_back(claim);
    }

    bool HasWord(const std::string& word) const {
        return std::find(words_.begin(), words_.end(), word) != words_.end();
    }

    bool HasLine(const Place& place, Assignment* line) const {
        if (place.file.empty()) return false;
        const Strings lines = device_->Lines(place.file);
        return place.line <= lines.size() && Parse(lines[place.line - 1], line);
    }

    // Whether the origin has the value, which cannot show bytes that are not UTF-8.
    static bool IsValue(const json& origin, const std::string& value) {
        const std::string told = origin["value"];
        return told.find("\xef\xbf\xbd") != std::string::npos || told == value;
    }

    void JudgeCompleteness() {
        std::set<std::string> files;
        for (const auto& entry : fs::recursive_directory_iterator(device_->root())) {
            const std::string path = entry.path().string().substr(device_->root().size());
            if (entry.is_regular_file() && !entry.is_symlink() && EndsWith(path, ".prop")) {
                files.insert(path);
            }
        }
        for (const std::string& path : opened_) {
            const std::string file = device_->Resolve(path);
            if (!file.empty() && !EndsWith(file, "devicename.cfg")) files.insert(file);
        }
        for (const std::string& file : files) {
            const Strings lines = device_->Lines(file);
            for (size_t i = 0; i < lines.size(); ++i) {
                Assignment line;
                if (!Parse(lines[i], &line)) continue;
                State("complete");
                if (places_.count({{file, i + 1}, line.name}) != 0) continue;
                False({{"line", lines[i]}}, file + ":" + std::to_string(i + 1) + " is missing");
            }
        }
    }

    struct Requirement {
        std::string name;
        Place place;
        json origin;
    };

    static bool IsLoaded(const json& origin) {
        const std::string fate = origin["fate"];
        return fate != "not loaded" && fate != "filtered out" && fate != "looked up";
    }

    // Returns the lines that a boot with more words loads.
    std::set<std::pair<Place, std::string>> Loaded(const Strings& more) {
        Strings words = words_;
        words.insert(words.end(), more.begin(), more.end());
        std::set<std::pair<Place, std::string>> loaded;
        const json explained = Read("explain", words, {"--all", "--json"});
        if (explained.is_null()) return loaded;
        for (const json& property : explained["properties"]) {
            for (const json& origin : property["origins"]) {
                if (origin["kind"] != "file" || !IsLoaded(origin)) continue;
                loaded.insert({PlaceOf(origin), property["name"].get<std::string>()});
            }
        }
        return loaded;
    }

    void JudgeRequirement(const json& requires, const std::vector<Requirement>& lines) {
        if (!requires.is_null()) {
            const auto loaded = Loaded(requires.get<Strings>());
            for (const Requirement& line : lines) {
                if (loaded.count({line.place, line.name}) == 0) {
                    False(line.origin, line.name + " is not loaded by what it requires");
                }
            }
            return;
        }
        for (const Strings& words : Attempts(lines)) {
            const auto loaded = Loaded(words);
            for (const Requirement& line : lines) {
                if (loaded.count({line.place, line.name}) == 0) continue;
                False(line.origin, line.name + " is loaded by " + android::base::Join(words, ' '));
            }
        }
    }

    // Words that may load lines of which it is said that nothing does.
    Strings AllSteps() const {
        return {"early",
                "persist",
                "sim",
                "sim:simSwitchFirst",
                "sim:simSwitchCurrent",
                "sim:switchCarrierChannel",
                "sim:regionSwitch",
                "sim:updateDataCommonProp",
                "sim:emptyAppchannelProp",
                "duskrider",
                "cota",
                "cota-service:mount_must_load",
                "cota-service:module_bind_single"};
    }

    std::vector<Strings> Attempts(const std::vector<Requirement>& lines) const {
        std::vector<Strings> attempts = {AllSteps()};
        std::set<std::string> files;
        for (const Requirement& line : lines) {
            for (const char* key : {"file", "source"}) {
                if (line.origin.contains(key) && line.origin[key].is_string()) {
                    files.insert(line.origin[key].get<std::string>());
                }
            }
        }
        constexpr char kBuildProp[] = "/build.prop";
        for (const std::string& file : files) {
            if (EndsWith(file, kBuildProp)) {
                attempts[0].push_back("early:" + file.substr(0, file.size() - strlen(kBuildProp)));
            }
        }
        for (const char* reference : {"ro.ref.0", "ro.ref.1"}) {
            for (const char* value : {"a", "b"}) {
                attempts.push_back(AllSteps());
                attempts.back().insert(attempts.back().end(),
                                       {"--set", std::string(reference) + "=" + value});
            }
        }
        // A carrier package may be mounted anywhere, and brings key directories of its own.
        constexpr std::pair<const char*, const char*> kLeaves[] = {
                {"/SimSwitchFirstTime/", "sys.sim.switch.first="},
                {"/SimSwitchCurrentTime/", "sys.sim.switch.current="},
                {"/switchCarrierChannel/", "persist.sys.channel.info="},
                {"/regionSwitch/", "sys.region.switch.first="}};
        size_t packages = 0;
        for (const std::string& file : files) {
            const size_t properties = file.find("/properties/");
            if (properties == std::string::npos || !EndsWith(file, ".prop")) continue;
            for (const auto& [leaf, setting] : kLeaves) {
                const size_t end = file.find(leaf);
                if (end == std::string::npos || ++packages > 4) continue;
                const size_t key = properties + strlen("/properties/");
                attempts.push_back({"sim", "--set", "sys.cotaimg.verify=1", "--set",
                                    "sys.cota.load.properties=" + file.substr(0, properties),
                                    "--set", setting + file.substr(key, end - key)});
            }
        }
        return attempts;
    }

    void JudgeText() {
        if (HasWord("cota-service:check_mount")) return;
        Strings line = {extprop_, "explain", device_->root(), "--all"};
        line.insert(line.end(), words_.begin(), words_.end());
        std::string text;
        ++boots_;
        State("text");
        if (Run(line, &text) != 0) return False({}, "explain failed");
        if (text.find("bind thread") == std::string::npos) return;
        False({}, "the text tells of a bind thread");
    }

    const std::string extprop_;
    const std::string directory_;
    bool has_what_if_;
    size_t statements_ = 0;
    size_t statements_before_ = 0;
    size_t false_ = 0;
    size_t boots_ = 0;
    size_t fresh_ = 0;
    std::map<std::string, size_t> kinds_;
    std::map<std::string, size_t> skipped_;

    // Of the present device.
    uint64_t seed_ = 0;
    Strings words_;
    std::unique_ptr<Device> device_;
    Outcome outcome_;
    std::set<std::string> written_;
    std::set<std::string> opened_;
    std::set<std::string> names_;
    std::vector<Claim> claims_;
    std::set<std::pair<Place, std::string>> places_;
    std::map<json, std::vector<Requirement>> requirements_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: explain_trial DEVICES SEED EXTPROP\n";
        return 2;
    }
    setlocale(LC_CTYPE, "C.UTF-8");  // as on the device
    const auto start = std::chrono::steady_clock::now();
    const size_t devices = strtoull(argv[1], nullptr, 0);
    const uint64_t seed = strtoull(argv[2], nullptr, 0);
    char directory[] = "/tmp/explain_trial.XXXXXX";
    CHECK(mkdtemp(directory) != nullptr);
    Trial trial(argv[3], directory);
    for (size_t i = 0; i < devices; ++i) trial.Judge(seed + i);
    if (trial.false_statements() == 0) fs::remove_all(directory);

    std::cout << "seed " << seed << ", " << devices << " devices, " << trial.boots() << " boots, "
              << std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() -
                                                                  start)
                         .count()
              << " s: " << trial.false_statements() << " of " << trial.statements()
              << " statements are false\n";
    for (const auto& [kind, count] : trial.kinds())
        std::cout << "  " << count << " " << kind << "\n";
    for (const auto& [why, count] : trial.skipped()) {
        std::cout << "  " << count << " skipped, " << why << "\n";
    }
    return trial.false_statements() == 0 ? 0 : 1;
}
