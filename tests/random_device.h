// Random device directories, in which each file that the library reads is ordinary, missing or odd.

#pragma once

#include <stdint.h>

#include <string>
#include <vector>

// Makes the device for `seed`, always the same one, in the directory `root`, which must be empty.
// Returns the steps and options of a boot of it for extprop's command line, possibly with what-if
// options if `with_what_if`. Throws std::filesystem::filesystem_error.
std::vector<std::string> MakeRandomDevice(const std::string& root, uint64_t seed,
                                          bool with_what_if);
