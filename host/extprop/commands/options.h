// The options of a boot, which several commands share.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "boot/boot.h"
#include "commands/command_line.h"

namespace extprop {

inline constexpr char kDeviceHelp[] =
        "A directory that looks like a phone's root, or an archive, update or image; it is never "
        "changed";

// The values of the options, as they were given; the functions below check them.
struct ImageArguments {
    std::string slot;                // "a" or "b"; AddImageOptions() sets the default
    std::vector<std::string> files;  // each NAME=FILE
};

struct BootArguments {
    std::string other_device;  // the device to compare with, or empty
    std::vector<std::string> steps;
    std::vector<std::string> settings;        // of --set, each NAME=VALUE
    std::vector<std::string> property_files;  // of --props
    std::vector<std::string> requests;
    std::vector<std::string> edits;
    std::vector<std::string> deletions;
    ImageArguments images;
    Variant what_if;
    bool any_word = false;
    bool no_complete = false;
    int time_limit = 30;  // for each step, in seconds
};

// Adds --slot and --image.
void AddImageOptions(CommandLine* line, ImageArguments* arguments);

// Returns the sandbox's options for the arguments. Throws InputError for an --image that is not
// NAME=FILE; the names and files are checked only when they are used.
sandbox::Options ImageOptionsOf(const ImageArguments& arguments);

// Return the device and the files of --image, and with the second function also those of --props
// and the other device, for WriteOutput(): a command that reads these does not replace them. Throw
// as ImageOptionsOf() does.
std::vector<std::string> InputsOf(const std::string& device, const ImageArguments& images);
std::vector<std::string> InputsOf(const std::string& device, const BootArguments& boot);

// Adds the options of a boot, except the device and the steps, and the help on the steps.
void AddBootOptions(CommandLine* line, BootArguments* arguments);

// Adds those of the words that begin with a step's word to the arguments' steps, which OptionsOf()
// checks. Returns the other words.
std::vector<std::string> TakeSteps(const std::vector<std::string>& words, BootArguments* arguments);

// Returns the options of the boot for the arguments, with the default steps if they name none.
// Reads the files of --props as ReadPhone() does and prints notes on them.
// Throws InputError for a step, property, request or what-if option that is not accepted, a file of
// --props that cannot be read, and a device that is not there and has the name of a step. Does not
// look into the device.
BootOptions OptionsOf(const std::string& device, const BootArguments& arguments);

}  // namespace extprop
