// Plays lives of devices, which are tables of files, properties and steps, through the interface
// that init uses. Each boot has a process of its own, over files in memory. Paths are absolute
// paths on the device. Where the player itself cannot go on, it aborts the process.

#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "IInitExtensionProperty.h"
#include "faults.h"

namespace player {

using android::init::PropertyMap;
using Files = std::map<std::string, std::string>;  // a path that ends in "/" is a directory

struct Life {
    const char* name;
    PropertyMap properties;          // the system's at the start of each boot
    Files files;                     // path to content
    std::vector<std::string> steps;  // as extprop takes them
};

// Returns lives that together reach every operation.
const std::vector<Life>& Lives();

// The result of one boot.
struct Outcome {
    std::string death;                // the signal's name, "exit" for a bad status, or ""
    std::vector<std::string> events;  // hand-overs and log lines, in their order
    std::set<std::string> values;     // properties handed over, and the system's at the end
    Files files;                      // as Snapshot() returns them
    std::vector<faults::Call> calls;  // none if the process was killed
    PropertyMap persistent;           // the persist.* properties that were handed over
    std::set<std::string> handed;     // "name=value" of all properties that were handed over
};

// Runs `body` in a process that can make Worlds, and returns its result; EXIT_FAILURE if it is
// killed. Throws as KernelRoot does.
int RunPrivately(int (*body)(int argc, char** argv), int argc, char** argv);

// A device's files, in memory, from its first boot to its last. At most one exists at a time, and
// only within RunPrivately(); the static functions are about that one.
class World {
  public:
    explicit World(const Files& files);
    ~World();

    // Boots the device and plays the life's steps, with its properties and those in `persistent`,
    // which count where both have a name. A boot that takes a minute is killed.
    Outcome Boot(const Life& life, const faults::Fault& fault = {},
                 const PropertyMap& persistent = {}) const;

    // The same in the calling process, without faults, records and limit. The process leaves the
    // device's root again.
    void BootHere(const Life& life) const;

    // Returns the path by which a device's file is reached from outside.
    static std::string Outside(const std::string& path);

    // Returns all that the device has: path to octal mode, content of a regular file, and owner,
    // such as "644 text 0:0". Links are not followed, and their targets are left out.
    static Files Snapshot();
};

}  // namespace player
