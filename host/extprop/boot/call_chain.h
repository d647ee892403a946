// Which of the library's functions are at work.

#pragma once

#include <string>
#include <vector>

namespace extprop {

inline constexpr char kLibrary[] = "libtesvoextproperty.so";

// Returns the library's named functions that lead to the caller, innermost first, a function that
// calls itself once. What only one source of the library sees has no name.
std::vector<std::string> CallChain();

}  // namespace extprop
