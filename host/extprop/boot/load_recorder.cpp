#include "boot/load_recorder.h"

#include <sys/stat.h>

#include <android-base/properties.h>

#include "device/inside.h"

namespace extprop {

void LoadRecorder::Begin(const std::string& path, const std::string& filter) {
    const std::string own = tracker_.SourceOf(path).value_or(PlainPath(path));
    Load load{{own, filter, step_}, {}, tracker_.WasWritten(own)};
    const auto imports = imports_.find(own);
    // The library sets no property until the load is done, so the imports expand the same now.
    if (imports != imports_.end() && filter.empty()) {
        for (const ImportLine& import : imports->second) {
            RecordedImport read{own, import.line, {}, Expand(import.name).path, false};
            for (const std::string& name : References(import.name)) {
                read.values.push_back(android::base::GetProperty(name, ""));
            }
            read.leads_to_file = !read.path.empty() && IsRegular(read.path);
            load.imports.push_back(std::move(read));
        }
    }
    loading_.push_back(std::move(load));
}

void LoadRecorder::End(bool loaded) {
    Load load = std::move(loading_.back());
    loading_.pop_back();
    // A file that the boot itself has written is no longer the device's.
    if (!loaded || load.was_written) return;
    record_.loads.insert(std::move(load.load));
    record_.imports.insert(load.imports.begin(), load.imports.end());
}

}  // namespace extprop
