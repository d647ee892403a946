// Changes of a device's files.

#pragma once

#include <string>
#include <vector>

namespace sandbox {

struct FileChange {
    enum Kind { kCreated, kChanged, kDeleted };
    Kind kind;
    std::string path;  // absolute, in the device directory
};

// Returns "created", "changed" or "deleted".
const char* Name(FileChange::Kind kind);

}  // namespace sandbox
