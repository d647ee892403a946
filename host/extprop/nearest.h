// The known word that a misspelt one was probably meant to be.

#pragma once

#include <string>
#include <vector>

namespace extprop {

// How many letters have to be changed, added, left out or swapped to make one word the other.
size_t Distance(const std::string& a, const std::string& b);

// Returns the known word nearest to the given one without regard to case, or nothing if more than
// `most` letters differ.
std::string Nearest(const std::string& word, const std::vector<std::string>& known, size_t most);

// Returns what asks for the nearest word behind a message, nothing if there is none.
std::string Meant(const std::string& nearest);

}  // namespace extprop
