// Records which property files a boot loads and where their imports lead, without an event for
// each.

#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "boot/load_tracker.h"
#include "boot/report.h"
#include "device/imports.h"

namespace extprop {

// Not thread-safe.
class LoadRecorder {
  public:
    // Records where the given imports lead. Both arguments must outlive this.
    LoadRecorder(const LoadTracker& tracker, const DeviceImports& imports)
            : tracker_(tracker), imports_(imports) {}

    void OnStep(const std::string& step) { step_ = step; }

    // Call these when the library's loader begins a file and when it has ended.
    void Begin(const std::string& path, const std::string& filter);
    void End(bool loaded);

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
