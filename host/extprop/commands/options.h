// The command line's options of a boot, which several commands share.

#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "boot/boot.h"

namespace extprop {

struct BootArguments {
    std::vector<std::string> steps;
    std::vector<std::string> settings;
    std::vector<std::string> property_files;
    std::vector<std::string> requests;
    std::vector<std::string> edits;
    std::string slot, brand, region, nv_key;
    const CLI::Option* brand_option = nullptr;
    const CLI::Option* region_option = nullptr;
    const CLI::Option* nv_key_option = nullptr;
    bool any_word = false;
    bool no_complete = false;
    unsigned time_limit = 30;
};

// Adds the option for the slot whose partition images are read.
void AddSlotOption(CLI::App* command, std::string* slot);

// Adds the options that decide what is booted, all but the device and the steps, and the help on
// the steps.
void AddBootOptions(CLI::App* command, BootArguments* arguments);

// Returns the boot that the arguments ask for, early and persist where they name no steps. Throws
// InputError.
BootOptions OptionsOf(const std::string& device, const BootArguments& arguments);

}  // namespace extprop
