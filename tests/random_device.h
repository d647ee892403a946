// Random device directories, in which each file that the library reads is ordinary, missing or odd.

#pragma once

#include <stdint.h>

#include <string>
#include <vector>

// Makes the device for `seed` in the directory `root`. Returns the steps and options of a boot of
// it, and possibly what-if options if `with_what_if`.
std::vector<std::string> MakeRandomDevice(const std::string& root, uint64_t seed,
                                          bool with_what_if);
