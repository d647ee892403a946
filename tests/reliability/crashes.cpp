// Kills each boot that migrates, converts or restores, before and after every call that changes the
// file system, loses data that were written but not synced, and examines the state that the next
// boots reach.

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <iterator>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "player.h"
#include "reliability.h"

namespace {

using faults::Call;
using faults::Fault;
using player::Life;
using player::Outcome;
using player::PropertyMap;
using player::World;

constexpr int kBootsAfter = 3;

bool IsConcerned(const Life& life) {
    const std::string name = life.name;
    return android::base::StartsWith(name, "migration") ||
           android::base::StartsWith(name, "conversion") || name == "emergency restore";
}

struct Totals {
    int killed = 0, boots = 0, same = 0;
};

// Boots the device until nothing changes any more.
Outcome BootOn(const World& world, const Life& life, PropertyMap persistent, Totals* totals) {
    Outcome outcome;
    for (int i = 0; i < kBootsAfter; ++i) {
        outcome = world.Boot(life, {}, persistent);
        for (const auto& [name, value] : outcome.persistent) persistent[name] = value;
        ++totals->boots;
    }
    return outcome;
}

using Marks = std::set<std::string>;

// Returns how the device differs in the end, in its files and in the properties of the state.
Marks Differences(const Outcome& expected, const Outcome& outcome) {
    Marks marks;
    if (!outcome.death.empty()) marks.insert("died: " + outcome.death);
    const auto named = [](const std::string& path) {
        return "`" + path.substr(path.rfind('/', path.rfind('/') - 1) + 1) + "`";
    };
    for (const auto& [path, state] : outcome.files) {
        auto other = expected.files.find(path);
        const auto content = [](const std::string& text) {
            return text.substr(0, text.rfind(' '));
        };
        if (other == expected.files.end()) {
            marks.insert(named(path) + " stays");
        } else if (content(other->second) != content(state)) {
            marks.insert(named(path) +
                         (content(state).back() == ' ' ? " stays empty" : " is another"));
        } else if (other->second != state) {
            marks.insert(named(path) + " stays root's");
        }
    }
    for (const auto& [path, state] : expected.files) {
        if (outcome.files.count(path) == 0) marks.insert(named(path) + " is never made");
    }
    for (const std::string& value : expected.values) {
        if (android::base::StartsWith(value, "sys.") && outcome.values.count(value) == 0) {
            marks.insert("no `" + value + "`");
        }
    }
    if (marks.empty() && expected.values != outcome.values) marks.insert("other properties");
    return marks;
}

// The rows of the table: where the boot was killed, which marks that leaves, and in which lives.
using Table = std::map<std::pair<std::string, std::string>, std::vector<std::string>>;

class Crasher {
  public:
    Crasher(const Life& life, Totals* totals) : life_(life), totals_(totals) {
        World world(life.files);
        undisturbed_ = world.Boot(life);
        Totals unused;
        expected_ = BootOn(world, life, undisturbed_.persistent, &unused);
    }

    void AddTo(Table* table) {
        std::map<Marks, std::vector<std::string>> rows;
        std::string moment = "the hand-over";
        for (size_t i = 0; i < undisturbed_.calls.size(); ++i) {
            const Call& call = undisturbed_.calls[i];
            if (!faults::Changes(call) || !call.succeeded) continue;
            for (bool after : {false, true}) {
                if (after) moment = call.name + " of `" + android::base::Basename(call.path) + "`";
                for (const auto& [when, marks] : KillAt(i, after)) {
                    std::vector<std::string>& moments = rows[marks];
                    const std::string text = when.empty() ? "after " + moment : when;
                    if (!std::count(moments.begin(), moments.end(), text)) moments.push_back(text);
                }
            }
        }
        for (const auto& [marks, moments] : rows) {
            (*table)[{android::base::Join(moments, "; "), android::base::Join(marks, ", ")}]
                    .push_back(life_.name);
        }
    }

  private:
    // Returns the marks that a kill at the call leaves, if any: those of the kill alone under the
    // key "", those with contents of files lost under the files' names.
    std::map<std::string, Marks> KillAt(size_t index, bool after) {
        const std::vector<Call>& calls = undisturbed_.calls;
        std::set<std::string> written;
        for (size_t i = 0; i < index + after; ++i) {
            if (calls[i].name == "write") written.insert(calls[i].path);
            if (calls[i].name == "unlink") written.erase(calls[i].path);
        }
        const std::vector<std::string> unsynced(written.begin(), written.end());
        std::map<std::string, Marks> found;
        Marks explained;
        // In this order each set of lost files comes after all of its subsets.
        for (unsigned lost = 0; lost < 1u << unsynced.size(); ++lost) {
            World world(life_.files);
            Fault fault;
            fault.call = static_cast<int>(index);
            fault.kill = after ? Fault::kAfter : Fault::kBefore;
            const Outcome killed = world.Boot(life_, fault);
            std::vector<std::string> names;
            for (size_t i = 0; i < unsynced.size(); ++i) {
                if ((lost >> i & 1) == 0) continue;
                if (truncate(World::Outside(unsynced[i]).c_str(), 0) != 0) abort();
                names.push_back("`" + android::base::Basename(unsynced[i]) + "`");
            }
            ++totals_->killed;
            Marks marks = Differences(expected_, BootOn(world, life_, killed.persistent, totals_));
            if (marks.empty()) ++totals_->same;
            Marks more;
            std::set_difference(marks.begin(), marks.end(), explained.begin(), explained.end(),
                                std::inserter(more, more.end()));
            explained.insert(more.begin(), more.end());
            if (more.empty()) continue;
            found[names.empty() ? ""
                                : "content of " + android::base::Join(names, " and ") + " lost"] =
                    more;
        }
        return found;
    }

    const Life& life_;
    Totals* totals_;
    Outcome undisturbed_, expected_;
};

}  // namespace

int Crashes(int, char**) {
    Totals totals;
    Table table;
    for (const Life& life : player::Lives()) {
        if (IsConcerned(life)) Crasher(life, &totals).AddTo(&table);
    }
    for (const auto& [row, lives] : table) {
        std::cout << "| " << android::base::Join(lives, ", ") << " | " << row.first << " | "
                  << row.second << " |\n";
    }
    std::cout << totals.killed << " times killed, " << totals.boots << " boots after it, "
              << totals.same << " times as if it had not been\n";
    return 0;
}
