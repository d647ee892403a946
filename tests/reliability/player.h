// Plays lives of devices: tables of files, properties and steps, through the interface that init
// uses, each boot in a process of its own over files in memory.

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

// Together they reach every operation.
const std::vector<Life>& Lives();

// What comes of one boot.
struct Outcome {
    std::string death;                // how the process ended if it did not end well, or ""
    std::vector<std::string> events;  // hand-overs and log lines, in their order
    std::set<std::string> values;     // what init was handed, and the system properties at the end
    Files files;                      // path to mode, content and owner
    std::vector<faults::Call> calls;
    PropertyMap persistent;        // the persist.* properties that init was handed
    std::set<std::string> handed;  // "name=value" of all that init was handed
};

// Runs `body` in a process that may make worlds, and returns its result.
int RunPrivately(int (*body)(int argc, char** argv), int argc, char** argv);

// A device's files, in memory, from its first boot to its last.
class World {
  public:
    explicit World(const Files& files);
    ~World();

    // Boots the device: plays the steps of the life, with its properties and those of `persistent`.
    Outcome Boot(const Life& life, const faults::Fault& fault = {},
                 const PropertyMap& persistent = {}) const;

    // Boots it in the calling process, which comes out again.
    void BootHere(const Life& life) const;

    // Returns a path at which the device's file is reached from outside.
    static std::string Outside(const std::string& path);

    static Files Snapshot();
};

}  // namespace player
