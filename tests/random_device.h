// Device directories in which everything that the library reads may be there, or not, or be odd.

#pragma once

#include <stdint.h>

#include <string>
#include <vector>

// Makes the directory `root`, the device of the number `seed`, and returns the steps and options
// of a boot of it.
std::vector<std::string> MakeRandomDevice(const std::string& root, uint64_t seed);
