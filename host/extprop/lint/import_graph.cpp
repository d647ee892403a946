#include "lint/import_graph.h"

#include <stdint.h>

#include <algorithm>
#include <functional>
#include <set>
#include <utility>

#include "printable.h"

namespace extprop {

namespace {

constexpr const Rule& kImportCycle = RuleNamed("import-cycle");
constexpr const Rule& kImportMultiplies = RuleNamed("import-multiplies");

// So many loads of one file are hardly intended.
constexpr uint64_t kManyLoads = 100;

// Finds what makes imports load without end.
class CycleFinder {
  public:
    CycleFinder(const ImportGraph& graph, Findings* findings)
            : graph_(graph), findings_(findings) {}

    // Reports each import that closes a cycle. Returns the files that lead into one, and those that
    // lead on further than kDeepest.
    std::set<std::string> Find() {
        for (const auto& [path, imports] : graph_) Visit(path);
        return endless_;
    }

  private:
    // So that a device cannot exhaust the stack of who follows its imports.
    static constexpr size_t kDeepest = 200;

    void Visit(const std::string& path) {
        const auto imports = graph_.find(path);
        if (imports == graph_.end() || !depths_.try_emplace(path).second) return;
        if (way_.size() >= kDeepest) {
            NoteDeep(path);
            return;
        }
        way_.push_back(path);
        size_t depth = 1;
        for (const Import& import : imports->second) {
            if (!import.is_followed()) continue;
            for (const std::string& to : *import.files) {
                const auto start = std::find(way_.begin(), way_.end(), to);
                if (start != way_.end()) {
                    AddCycle(start, path, import.line->number);
                    continue;
                }
                Visit(to);
                if (endless_.count(to) != 0) endless_.insert(path);
                const auto below = depths_.find(to);
                if (below != depths_.end()) depth = std::max(depth, below->second + 1);
            }
        }
        way_.pop_back();
        depths_[path] = depth;
        if (depth > kDeepest) NoteDeep(path);
    }

    void AddCycle(std::vector<std::string>::const_iterator start, const std::string& path,
                  int line) {
        endless_.insert(path);
        std::string cycle;
        for (auto step = start; step != way_.end(); ++step) cycle += *step + " -> ";
        findings_->Add(
                kImportCycle, path, line,
                cycle + *start +
                        ": the loader follows imports without end, so the phone does not boot");
    }

    void NoteDeep(const std::string& path) {
        endless_.insert(path);
        if (std::exchange(is_noted_, true)) return;
        findings_->Add(kNotChecked, path,
                       "its imports lead on through more than " + std::to_string(kDeepest) +
                               " files, so they are not followed to their end");
    }

    const ImportGraph& graph_;
    Findings* findings_;
    std::map<std::string, size_t> depths_;  // of the files visited: how many follow one another
    std::set<std::string> endless_;
    std::vector<std::string> way_;  // from the first file to the one visited
    bool is_noted_ = false;
};

// Counts the loads that one load of a file causes.
class LoadCounter {
  public:
    explicit LoadCounter(const ImportGraph& graph) : graph_(graph) {}

    struct Worst {
        uint64_t loads = 0;
        std::string file;
        int line = 1;  // of the import that causes the most loads
    };

    // Returns the file that one load of the file at `top` loads most often.
    Worst WorstOf(const std::string& top) {
        Worst worst;
        if (LoadsBy(top) < kManyLoads) return worst;
        std::map<std::string, uint64_t> loads, follows = {{top, 1}};
        for (const std::string& path : InOrder(top)) {
            for (const Import& import : ImportsOf(path)) {
                const std::string* to = Chosen(import);
                if (to == nullptr) continue;
                loads[*to] = Sum(loads[*to], follows[path]);
                if (import.is_followed()) follows[*to] = Sum(follows[*to], follows[path]);
            }
        }
        for (const auto& [path, count] : loads) {
            if (count > worst.loads) worst = {count, path, 1};
        }
        uint64_t most = 0;
        for (const Import& import : ImportsOf(top)) {
            if (Of(import) <= most) continue;
            most = Of(import);
            worst.line = import.line->number;
        }
        return worst;
    }

  private:
    static uint64_t Sum(uint64_t a, uint64_t b) {
        constexpr uint64_t kMost = 1000000000;
        return std::min(a + b, kMost);
    }

    const std::vector<Import>& ImportsOf(const std::string& path) const {
        static const std::vector<Import> none;
        const auto known = graph_.find(path);
        return known == graph_.end() ? none : known->second;
    }

    // Returns the file, of those to which the import may lead, that causes the most loads; any of
    // them if its own imports are not followed. Null if there is none.
    const std::string* Chosen(const Import& import) {
        if (import.files->empty()) return nullptr;
        if (!import.is_followed()) return &import.files->front();
        const std::string* chosen = nullptr;
        for (const std::string& file : *import.files) {
            if (chosen == nullptr || LoadsBy(file) > LoadsBy(*chosen)) chosen = &file;
        }
        return chosen;
    }

    uint64_t Of(const Import& import) {
        const std::string* file = Chosen(import);
        if (file == nullptr) return 0;
        return import.is_followed() ? Sum(1, LoadsBy(*file)) : 1;
    }

    // Returns the number of loads that one load of the file causes.
    uint64_t LoadsBy(const std::string& path) {
        const auto [known, is_new] = loads_by_.try_emplace(path);
        if (!is_new) return known->second;
        uint64_t loads = 0;
        for (const Import& import : ImportsOf(path)) loads = Sum(loads, Of(import));
        return loads_by_[path] = loads;
    }

    // Returns `top` and the files to which its imports lead, each before those that it imports.
    std::vector<std::string> InOrder(const std::string& top) {
        std::vector<std::string> order;
        std::set<std::string> done;
        const std::function<void(const std::string&)> visit = [&](const std::string& path) {
            if (!done.insert(path).second) return;
            for (const Import& import : ImportsOf(path)) {
                const std::string* to = Chosen(import);
                if (to != nullptr && import.is_followed()) visit(*to);
            }
            order.push_back(path);
        };
        visit(top);
        std::reverse(order.begin(), order.end());
        return order;
    }

    const ImportGraph& graph_;
    std::map<std::string, uint64_t> loads_by_;
};

// Reports the files that no file imports and that load one file very often.
void CheckMultiplication(const ImportGraph& graph, const std::set<std::string>& endless,
                         Findings* findings) {
    std::set<std::string> imported;
    for (const auto& [path, imports] : graph) {
        for (const Import& import : imports) {
            imported.insert(import.files->begin(), import.files->end());
        }
    }
    LoadCounter counter(graph);
    for (const auto& [path, imports] : graph) {
        if (imported.count(path) != 0 || endless.count(path) != 0) continue;
        const LoadCounter::Worst worst = counter.WorstOf(path);
        if (worst.loads < kManyLoads) continue;
        findings->Add(kImportMultiplies, path, worst.line,
                      "loading this file once may load " + QuotedShort(worst.file) + " " +
                              std::to_string(worst.loads) +
                              " times, since so many chains of imports lead to it");
    }
}

}  // namespace

void CheckImportGraph(const ImportGraph& graph, Findings* findings) {
    CheckMultiplication(graph, CycleFinder(graph, findings).Find(), findings);
}

}  // namespace extprop
