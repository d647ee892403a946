// What the files below a directory are like at one moment, and what changed between two.

#pragma once

#include <sys/stat.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "changes.h"

namespace sandbox {

struct FileState {
    struct stat status;
    std::optional<std::string> content;  // of a small file that was written just now

    // Whether a user of the file would notice a difference.
    bool operator==(const FileState& other) const;
};

// From absolute path, the directory that was looked at being "/", to state.
using Snapshot = std::map<std::string, FileState>;

// Looks at everything below `directory`, without following symbolic links or entering what is
// mounted there.
Snapshot TakeSnapshot(const std::string& directory);

// Returns what was created, changed and deleted, in the order of the paths. A directory counts as
// changed by its mode and owner only.
std::vector<FileChange> Changes(const Snapshot& before, const Snapshot& after);

}  // namespace sandbox
