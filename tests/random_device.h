// Device directories in which everything that the library reads may be there, or not, or be odd.

#pragma once

#include <stdint.h>

#include <string>
#include <vector>

// Makes the device of the number `seed` in the directory `root`, and returns the steps and options
// of a boot of it, perhaps with what-if options.
std::vector<std::string> MakeRandomDevice(const std::string& root, uint64_t seed,
                                          bool with_what_if);
