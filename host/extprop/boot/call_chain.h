// Finds which of the library's functions are running.

#pragma once

#include <string>
#include <vector>

namespace extprop {

inline constexpr char kLibrary[] = "libtesvoextproperty.so";

// Returns the library's functions on the calling thread's stack, innermost first; a function that
// calls itself is listed once. Functions with internal linkage have no name and are left out.
std::vector<std::string> CallChain();

}  // namespace extprop
