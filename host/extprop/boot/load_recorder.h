// Records which property files a boot loads and where their imports lead, without an event for
// each.

#pragma once

#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "boot/load_tracker.h"
#include "boot/report.h"
#include "device/imports.h"

namespace extprop {

// Not thread-safe.
class LoadRecorder {
  public:
    // Records loads, and where these imports lead. Both arguments must outlive this.
    LoadRecorder(const LoadTracker& tracker, const DeviceImports& imports)
            : tracker_(tracker), imports_(imports) {}

    // Call this when a step begins: the loads after it are recorded as loads of this step.
    void OnStep(const std::string& step) { step_ = step; }

    // Call these in pairs, when the library's loader begins a file and when it is done with it; the
    // pairs of the files that it imports lie between the two. An empty `filter` is none. Nothing is
    // recorded of a file that was not loaded or that the boot itself had written, and of a file
    // that was loaded with a filter no imports.
    void Begin(const std::string& path, const std::string& filter);
    void End(bool loaded);

    // Returns what was recorded since the last call.
    BootRecord Take() { return std::exchange(record_, {}); }

  private:
    struct Load {
        RecordedLoad load;
        std::vector<RecordedImport> imports;
        bool was_written;
    };

    const LoadTracker& tracker_;
    const DeviceImports& imports_;
    std::string step_;
    std::vector<Load> loading_;  // each imported by the one before
    BootRecord record_;
};

}  // namespace extprop
