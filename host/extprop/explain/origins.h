// Follows where each value comes from: the lines and operations that gave it, in the order of time.

#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "boot/boot.h"

namespace extprop {

enum class OriginKind { kGiven, kFile, kOperation, kRequest };

enum class Fate {
    kWins,
    kOverridden,
    kNotHandedOn,  // loaded, but never handed to init
    kGone,         // lost in a reboot
    kRefused,      // by init
    kLookedUp,     // only read by the look-up of one property; from here on did_not_load()
    kFilteredOut,  // by the filter of the import that led to it
    kNotLoaded,
};

// What gave a property its value, or could have. Paths are absolute paths on the device; `file` is
// the one by which the library opened it, `source` the device's own, if that is another.
struct Origin {
    OriginKind kind = OriginKind::kGiven;
    std::string value;
    Fate fate = Fate::kWins;
    std::optional<int> boot;          // from 1; none if kNotLoaded
    std::optional<std::string> step;  // none before the first step of a boot

    // Of a file.
    std::string file;
    int line = 0;  // from 1
    std::optional<std::string> source;
    std::optional<sandbox::ImagePlace> image;
    std::optional<std::string> imported_by;  // "file:line"
    std::optional<std::string> filter;       // of that import
    bool written = false;                    // the boot itself wrote the file before

    // Of an operation, a look-up or a load.
    std::vector<std::string> operations;  // the library's functions, innermost first
    std::string reason;                   // for the fate, if more is known
    std::vector<OperationInput> inputs;   // what an operation read for the value

    // Of a line that a what-if option changed: "variant" or "edit".
    std::string changed_for;

    // Of a line that did not load: the words with which the same command line loads it, seen in a
    // boot with them; none if no boot loaded it or none was tried. And how many boots were made to
    // find them.
    std::optional<std::vector<std::string>> required;
    int tried = 0;

    bool did_not_load() const { return fate >= Fate::kLookedUp; }
    // The device's own path of the file.
    const std::string& own_file() const { return source ? *source : file; }
};

// By property.
using Origins = std::map<std::string, std::vector<Origin>>;

// Follows one call of PreparedDevice::Boot, which calls the On...() functions, with its reboots.
// Finds the origins of the properties with `traced` names; of other properties it knows only the
// operations that handed them over.
class Tracer : public BootListener {
  public:
    void OnBoot(const BootStart& start) override;
    void OnStep(const std::string& step) override;
    void OnEvent(const Event& event) override;
    void OnLines(const LinesRead& lines) override;
    void OnStepEnd() override;

    // Returns the origin of the property's present value, or null if nothing has set it. The
    // pointer is valid until the next event.
    const Origin* Winner(const std::string& name) const;

    // Returns what operations read that then set no property, by the name of the library's
    // innermost function; of a function that did so several times, what it read last.
    const std::map<std::string, std::vector<OperationInput>>& idle() const { return idle_; }

    // Returns the origins so far. Each line of a file is listed once, with its most important
    // fate.
    extprop::Origins Origins() const;

  private:
    struct Assignment {
        std::string name;
        Origin origin;
        bool handed = false;
    };
    struct Map {
        std::vector<Assignment> lines;
        std::map<std::string, size_t> last;  // of each name
    };

    void HandOver(const Handover& handover, const std::vector<std::string>& operations,
                  std::optional<int> map);
    void AddOperation(OriginKind kind, const std::string& name, const std::string& value,
                      const std::vector<std::string>& operations);
    void Add(const std::string& name, Origin origin);
    Origin* FindWinner(const std::string& name);

    extprop::Origins origins_;
    std::map<std::string, size_t> winners_;  // index of the winner in its origins
    std::map<std::string, size_t> stored_;   // those that were persistent at the last reboot
    std::map<int, Map> maps_;
    std::map<std::pair<std::string, std::string>, bool> changed_;
    std::map<std::string, std::vector<OperationInput>> idle_;  // by the innermost operation
    std::vector<LoadEvent> loads_;                             // of this boot
    LookUpEvent look_up_;
    const std::vector<OperationInput>* inputs_ = nullptr;  // of the present event
    std::optional<int> own_map_;                           // init's
    int boot_ = 0;
    std::optional<std::string> step_;  // none before the first of a boot
};

}  // namespace extprop
