// Finds which of the library's functions are running.

#pragma once

#include <string>
#include <vector>

namespace extprop {

inline constexpr char kLibrary[] = "libtesvoextproperty.so";

// Returns the names, without namespaces, of the library's functions on the calling thread's stack,
// innermost first; a function that calls itself is listed once. Functions with internal linkage
// have no name and are left out, as is all beyond the innermost 64 frames of the stack.
std::vector<std::string> CallChain();

}  // namespace extprop
