// When in a boot the library can load a file, for its own sake or because another imports it.

#pragma once

#include <map>
#include <string>

#include "explain/survey.h"

namespace extprop {

// In the order of a boot. What is loaded in one moment is handed to init at its end.
enum Moment : unsigned {
    kSystems = 1 << 0,     // not the library's: the system's own init may load it, before all
    kEarly = 1 << 1,       // the partitions
    kKeyFiles = 1 << 2,    // step persist settles the switch keys
    kOverlay = 1 << 3,     // what the switch keys select, by step persist and any step sim
    kCompany = 1 << 4,     // a new company image
    kData = 1 << 5,        // the data partition's files
    kAnyTime = 1 << 6,     // commands of steps behind persist, in any order
    kUnsearched = 1 << 7,  // as kAnyTime, if only somebody called its root a carrier package
};

struct FileMoments {
    unsigned whole = 0;                        // in which its imports are followed
    std::map<std::string, unsigned> filtered;  // by an import's filter

    // The moments in which a line of this name is loaded.
    unsigned Of(const std::string& name) const;
};

// Returns the moments of each file that has any, by the device's own path.
std::map<std::string, FileMoments> MomentsOf(const Survey& survey);

// Returns the directory in which a partition would be mounted that the path is on: "/odm" or
// "/mnt/vendor/my_region".
std::string PartitionOf(const std::string& path);

// What the library has to do with the partition at a directory.
struct PartitionKind {
    enum {
        kKnown,     // it has roots there, or the system shows a partition with roots there too
        kMisspelt,  // the name is nearly that of a known one
        kAlike,     // the name is of the known ones' form
        kSystems,   // nothing
    } kind = kSystems;
    std::string nearest;  // of a misspelt one where the known one would be
};
PartitionKind KindOfPartition(const std::string& directory);

}  // namespace extprop
