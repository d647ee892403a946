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

// The options for partition images.
struct ImageArguments {
    std::string slot;
    std::vector<std::string> files;
};

struct BootArguments {
    std::string other_device;  // the device to compare with
    std::vector<std::string> steps;
    std::vector<std::string> settings;
    std::vector<std::string> property_files;
    std::vector<std::string> requests;
    std::vector<std::string> edits;
    std::vector<std::string> deletions;
    ImageArguments images;
    Variant what_if;
    bool any_word = false;
    bool no_complete = false;
    int time_limit = 30;
};

// Adds the options for partition images.
void AddImageOptions(CommandLine* line, ImageArguments* arguments);

// Returns the sandbox's options for the arguments. Throws InputError.
sandbox::Options ImageOptionsOf(const ImageArguments& arguments);

// Return the files and directories that a command over the device reads, which no output may
// replace.
std::vector<std::string> InputsOf(const std::string& device, const ImageArguments& images);
std::vector<std::string> InputsOf(const std::string& device, const BootArguments& boot);

// Adds the options of a boot, except the device and the steps, and the help on the steps.
void AddBootOptions(CommandLine* line, BootArguments* arguments);

// Moves those of the words that are steps to the arguments. Returns the others.
std::vector<std::string> TakeSteps(const std::vector<std::string>& words, BootArguments* arguments);

// Returns the options of the boot for the arguments, with the default steps if they name none.
// Throws InputError.
BootOptions OptionsOf(const std::string& device, const BootArguments& arguments);

}  // namespace extprop
