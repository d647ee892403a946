// Plays lives of devices, which are tables of files, properties and steps, through the interface
// that init uses. Each boot has a process of its own, over files in memory.

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
    PropertyMap properties;
    Files files;
    std::vector<std::string> steps;  // as extprop takes them
};

// Returns lives that together reach every operation.
const std::vector<Life>& Lives();

// The result of one boot.
struct Outcome {
    std::string death;                // how the process ended if it failed, or ""
    std::vector<std::string> events;  // hand-overs and log lines, in their order
    std::set<std::string> values;     // properties handed over, and the system's at the end
    Files files;                      // path to mode, content and owner
    std::vector<faults::Call> calls;
    PropertyMap persistent;        // the persist.* properties that were handed over
    std::set<std::string> handed;  // "name=value" of all properties that were handed over
};

// Runs `body` in a process that can make Worlds, and returns its result.
int RunPrivately(int (*body)(int argc, char** argv), int argc, char** argv);

// A device's files, in memory, from its first boot to its last.
class World {
  public:
    explicit World(const Files& files);
    ~World();

    // Boots the device and plays the life's steps, with its properties and those in `persistent`.
    Outcome Boot(const Life& life, const faults::Fault& fault = {},
                 const PropertyMap& persistent = {}) const;

    // The same in the calling process, which leaves the device's root again.
    void BootHere(const Life& life) const;

    // Returns the path by which a device's file is reached from outside.
    static std::string Outside(const std::string& path);

    static Files Snapshot();
};

}  // namespace player
