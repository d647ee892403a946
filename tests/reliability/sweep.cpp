// Makes every call of every life fail once in every possible way, and judges the outcome.

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <iterator>
#include <memory>

#include <android-base/strings.h>

#include "player.h"
#include "reliability.h"

namespace {

using faults::Call;
using faults::Fault;
using player::Files;
using player::Life;
using player::Outcome;
using player::World;

constexpr char kSplash[] = "/dev/block/by-name/splash_odm";

constexpr int kCut = -1;  // in place of an errno: a read or write that transfers one byte

// The ways in which the calls can fail.
const std::map<std::string, std::vector<int>> kFailures = {
        {"open", {EINTR, ENOENT, EACCES, EIO, ENOMEM, EMFILE, ENFILE, ELOOP, ENOSPC, EROFS}},
        {"fopen", {ENOENT, EACCES, EIO, ENOMEM, EMFILE}},
        {"read", {EINTR, kCut, EIO, ENOMEM, EISDIR}},
        {"write", {EINTR, kCut, ENOSPC, EIO, EDQUOT}},
        {"fstat", {EIO, ENOMEM, EOVERFLOW}},
        {"lseek", {EINVAL, EOVERFLOW, ESPIPE}},
        {"close", {EINTR, EIO, ENOSPC}},
        {"access", {ENOENT, EACCES, EIO, ENOMEM, ELOOP}},
        {"mkdir", {EEXIST, ENOENT, EACCES, ENOSPC, EROFS, EIO}},
        {"unlink", {ENOENT, EACCES, EBUSY, EIO, EROFS}},
        {"lchown", {EPERM, ENOENT, EIO, EROFS}},
        {"mount", {EPERM, ENOENT, EBUSY, EINVAL, ENOMEM}},
        {"opendir", {EINTR, ENOENT, EACCES, EIO, ENOMEM, EMFILE}},
        {"getdents", {EIO, ENOENT}},
        {"clone", {EAGAIN}},
};

// All files that the library may make, change or remove on these devices.
constexpr const char* kMayTouch[] = {
        "/mnt/vendor/tesvoreserve/system",
        "/data/system/customize/",
        "/data/cota/cota_mount_info.prop",
        "/data/cota/cota_module_info.prop",
        "/mnt/cota/new",
        kSplash,
};

template <typename Set>
Set Both(const Set& a, const Set& b) {
    Set both;
    std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::inserter(both, both.end()));
    return both;
}

template <typename Set>
Set Either(Set a, const Set& b) {
    a.insert(b.begin(), b.end());
    return a;
}

template <typename Set>
bool Contains(const Set& all, const Set& some) {
    return std::includes(all.begin(), all.end(), some.begin(), some.end());
}

using Items = std::set<std::string>;

// Returns the files as texts, the one at `path` without its owner.
Items FileItems(const Files& files, const std::string& path) {
    Items items;
    for (const auto& [name, state] : files) {
        items.insert(name + " " + (name == path ? state.substr(0, state.rfind(' ')) : state));
    }
    return items;
}

// Returns false for faults that the library must handle at once, without a visible effect.
bool IsFailure(const Fault& fault) {
    return fault.error != 0 && fault.error != EINTR;
}

Files Without(Files files, const std::string& path) {
    files.erase(path);
    return files;
}

// One life, and its outcomes if nothing fails or if all calls for one file fail.
class Subject {
  public:
    explicit Subject(const Life& life) : life_(life), undisturbed_(Play(life.files, {})) {
        World world(life.files);
        initial_ = World::Snapshot();
    }

    const std::vector<Call>& calls() const { return undisturbed_.calls; }
    const char* name() const { return life_.name; }

    // Returns what is wrong if nothing fails, or "".
    std::string Undisturbed() const { return JudgeAnyway(undisturbed_); }

    // Returns what is wrong with the outcome of the fault, or "".
    std::string Try(const Fault& fault) {
        const World world(life_.files);
        const Outcome outcome = world.Boot(life_, fault);
        std::string wrong = Judge(fault, outcome);
        if (wrong.empty() && IsFailure(fault) && IsOfKey(fault.call)) {
            const Outcome next = world.Boot(life_, {}, outcome.persistent);
            if (next.files != undisturbed_.files) wrong = "the next boot does not make up for it";
        }
        if (wrong.empty() || !verbose) return wrong;
        std::string text;
        for (const auto& event : outcome.events) text += "\n    " + event;
        for (const auto& item : outcome.values) {
            if (undisturbed_.values.count(item) == 0) text += "\n    + " + item;
        }
        for (const auto& item : undisturbed_.values) {
            if (outcome.values.count(item) == 0) text += "\n    - " + item;
        }
        return wrong + text;
    }

    static bool verbose;

  private:
    Outcome Play(const Files& files, const Fault& fault) const {
        return World(files).Boot(life_, fault);
    }

    // Returns the index of the call that opened the descriptor of the call at `index`, or -1.
    int OpenOf(int index) const {
        const std::string path = calls()[index].path;
        while (--index >= 0) {
            const Call& call = calls()[index];
            if (call.path == path && call.succeeded &&
                (android::base::EndsWith(call.name, "open") || call.name == "opendir")) {
                return index;
            }
        }
        return -1;
    }

    bool IsReadAfter(int index) const {
        return std::any_of(calls().begin() + index, calls().end(), [&](const Call& call) {
            return call.path == calls()[index].path && call.name == "read";
        });
    }

    // Returns whether the call writes a new key file that the same boot loads later.
    bool IsOfKey(int index) const {
        const Call& call = calls()[index];
        return (call.writes || call.name == "write") && call.path != kSplash &&
               initial_.count(call.path) == 0 && IsReadAfter(index);
    }

    // Returns the outcomes without the file, with a file for which no call succeeds, and with one
    // that cannot be removed.
    const std::vector<Outcome>& WithoutPath(const std::string& path) {
        auto [entry, is_new] = without_.try_emplace(path);
        if (!is_new) return entry->second;
        Files files = life_.files;
        for (auto file = files.begin(); file != files.end();) {
            const bool is_below =
                    android::base::StartsWith(file->first + "/", path + "/") ||
                    (path.back() == '/' && android::base::StartsWith(file->first, path));
            file = is_below ? files.erase(file) : std::next(file);
        }
        Fault hopeless;
        hopeless.path = path;
        hopeless.error = EIO;
        Fault lasting = hopeless;
        lasting.name = "unlink";
        entry->second = {Play(files, {}), Play(life_.files, hopeless), Play(life_.files, lasting)};
        return entry->second;
    }

    std::string Judge(const Fault& fault, const Outcome& outcome);
    std::string JudgeAnyway(const Outcome& outcome) const;

    const Life& life_;
    const Outcome undisturbed_;
    Files initial_;
    std::map<std::string, std::vector<Outcome>> without_;
    std::map<int, Outcome> failed_opens_;
};

bool Subject::verbose = false;

std::string Subject::JudgeAnyway(const Outcome& outcome) const {
    if (!outcome.death.empty()) return "died: " + outcome.death;
    for (const Call& call : outcome.calls) {
        if (kFailures.count(call.name) == 0) return call.name + ": " + call.path;
    }
    std::vector<std::pair<std::string, std::string>> changed;
    std::set_symmetric_difference(initial_.begin(), initial_.end(), outcome.files.begin(),
                                  outcome.files.end(), std::back_inserter(changed));
    for (const auto& [path, state] : changed) {
        const auto is_above = [&path = path](const char* may) {
            return android::base::StartsWith(path, may);
        };
        if (std::none_of(std::begin(kMayTouch), std::end(kMayTouch), is_above)) {
            return "touched " + path;
        }
    }
    return "";
}

std::string Subject::Judge(const Fault& fault, const Outcome& outcome) {
    const Outcome& before = undisturbed_;
    const Call& call = calls()[fault.call];
    if (std::string wrong = JudgeAnyway(outcome); !wrong.empty()) return wrong;

    const bool same_values = outcome.values == before.values;
    if (!IsFailure(fault) || call.name == "fstat" || call.name == "close") {
        if (outcome.events != before.events || !same_values) return "seen by init";
        return outcome.files == before.files ? "" : "seen in the files";
    }
    if (call.name == "clone") {
        return outcome.values.count("Resource temporarily unavailable") == 1 ? "" : "not thrown";
    }
    const bool same_others = Without(outcome.files, call.path) == Without(before.files, call.path);
    if (call.name == "unlink" && outcome.files.count(call.path) == 0) return "the file is gone";
    if (call.name == "unlink" && !same_others) return "more than the file is changed";
    if (call.name == "lchown") {
        return same_values && same_others && outcome.files.count(call.path) == 1
                       ? ""
                       : "more than the file is changed";
    }
    if (call.writes || call.name == "write") {
        const bool is_logo = call.path == kSplash;
        if (!is_logo && initial_.count(call.path) == 0 && outcome.files.count(call.path) != 0) {
            return "what was made of the file stays";
        }
        if (!IsReadAfter(fault.call) && !is_logo) {
            return same_values && same_others ? "" : "more than the file is changed";
        }
    }
    if (call.name == "read") {
        // The outcome must be as if the file had not been opened, or had been read to its end.
        const int open = OpenOf(fault.call);
        auto [failed_open, is_new] = failed_opens_.try_emplace(open);
        if (is_new) {
            Fault instead;
            instead.call = open;
            instead.error = EIO;
            failed_open->second = Play(life_.files, instead);
        }
        if (!same_values && outcome.values != failed_open->second.values) {
            return "neither read nor left";
        }
        for (const auto& [path, state] : initial_) {
            if (before.files.count(path) == 0 && outcome.files.count(path) != 0) {
                return path + " stays";
            }
        }
    }
    if (same_values && outcome.files == before.files) return "";
    // What does not depend on the file must be as ever; the rest must be as with the file, as
    // without it, or empty.
    const auto file_items = [&call](const Files& files) { return FileItems(files, call.path); };
    Items possible = before.values, certain = before.values;
    Items possible_files = Either(file_items(before.files), file_items(initial_));
    Items certain_files = file_items(before.files);
    for (const Outcome& other : WithoutPath(call.path)) {
        possible = Either(possible, other.values);
        certain = Both(certain, other.values);
        possible_files = Either(possible_files, file_items(other.files));
        certain_files = Both(certain_files, file_items(other.files));
    }
    for (const std::string& value : before.values) {
        if (certain.count(value) == 0) possible.insert(value.substr(0, value.find('=') + 1));
    }
    const Items files = file_items(outcome.files);
    if (!Contains(possible, outcome.values) || !Contains(outcome.values, certain)) {
        return "values that do not depend on it are changed";
    }
    if (!Contains(possible_files, files) || !Contains(files, certain_files)) {
        return "files that do not depend on it are changed";
    }
    return "";
}

}  // namespace

int Sweep(int argc, char** argv) {
    using Clock = std::chrono::steady_clock;
    const int seconds = argc > 0 ? atoi(argv[0]) : 0;
    const unsigned seed = argc > 1 ? atoi(argv[1]) : time(nullptr) / (24 * 60 * 60);
    Subject::verbose = getenv("VERBOSE") != nullptr;
    const auto deadline = Clock::now() + std::chrono::seconds(seconds);

    std::vector<std::unique_ptr<Subject>> subjects;
    std::vector<std::pair<Subject*, Fault>> all;
    size_t calls = 0;
    for (const Life& life : player::Lives()) {
        subjects.push_back(std::make_unique<Subject>(life));
        Subject* subject = subjects.back().get();
        calls += subject->calls().size();
        if (const std::string found = subject->Undisturbed(); !found.empty()) {
            std::cout << subject->name() << ", undisturbed: " << found << ": wrong\n";
            return 1;
        }
        for (size_t i = 0; i < subject->calls().size(); ++i) {
            for (int error : kFailures.at(subject->calls()[i].name)) {
                Fault fault;
                fault.call = static_cast<int>(i);
                fault.cut = error == kCut;
                fault.error = fault.cut ? 0 : error;
                all.emplace_back(subject, fault);
            }
        }
    }
    std::cout << subjects.size() << " lives, " << calls << " calls, " << all.size()
              << " failures, seed " << seed << std::endl;
    if (seconds > 0) {
        // By path, because all outcomes for one file are compared with the same boots.
        const auto order = [seed](const auto& failure) {
            const auto& [subject, fault] = failure;
            const std::string path = subject->calls()[fault.call].path;
            return std::hash<std::string>()(subject->name() + path + std::to_string(seed));
        };
        std::stable_sort(all.begin(), all.end(),
                         [&](const auto& a, const auto& b) { return order(a) < order(b); });
    }

    size_t tried = 0, wrong = 0;
    for (auto& [subject, fault] : all) {
        if (seconds > 0 && Clock::now() > deadline) break;
        ++tried;
        const std::string found = subject->Try(fault);
        if (found.empty()) continue;
        ++wrong;
        const Call& call = subject->calls()[fault.call];
        std::cout << subject->name() << ", call " << fault.call << ": " << call.name << " of "
                  << call.path << ", " << (fault.cut ? "cut short" : strerror(fault.error)) << ": "
                  << found << std::endl;
    }
    std::cout << tried << " tried, " << wrong << " wrong" << std::endl;
    return wrong == 0 && tried > 0 ? 0 : 1;
}
