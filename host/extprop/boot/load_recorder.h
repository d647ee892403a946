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

    // Call it when a step begins: the loads after it are recorded as loads of this step.
    void OnStep(const std::string& step) { step_ = step; }

    // Call these when the library's loader begins a file and when it has ended; an imported file
    // lies between the two calls of its importer. An empty `filter` is none. Nothing is recorded of
    // a file that was not loaded or that the boot has written, and no imports of one with a filter.
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
