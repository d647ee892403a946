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

// Returns the sandbox's options for the arguments. Of several --image with the same NAME the last
// counts. Throws InputError for one that is not NAME=FILE; names and files are checked only when
// they are used.
sandbox::Options ImageOptionsOf(const ImageArguments& arguments);

// Return what a command reads, so that WriteOutput() does not replace it: the device and the files
// of --image, and the second function also the other device, which may be "", and the files of
// --props. Throw as ImageOptionsOf() does.
std::vector<std::string> InputsOf(const std::string& device, const ImageArguments& images);
std::vector<std::string> InputsOf(const std::string& device, const BootArguments& boot);

// Adds the options of a boot, except the device and the steps, and the help on the steps.
void AddBootOptions(CommandLine* line, BootArguments* arguments);

// Adds the words for which IsStepWord() holds to the arguments' steps, and returns the others.
// OptionsOf() checks the steps.
std::vector<std::string> TakeSteps(const std::vector<std::string>& words, BootArguments* arguments);

// Returns the options of the boot for the arguments, with the default steps if they name none.
// Reads the files of --props and prints notes on them; does not look into the device. Throws
// InputError for a step, property, request or what-if option that is not accepted, and for a device
// that is not there and has the name of a step; otherwise as ReadPhone() and ImageOptionsOf() do.
BootOptions OptionsOf(const std::string& device, const BootArguments& arguments);

}  // namespace extprop
