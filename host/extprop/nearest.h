// Finds the known word for which a misspelt one was probably meant.

#pragma once

#include <string>
#include <vector>

namespace extprop {

// Returns how many letters must be changed, added, removed or swapped to make one word the other.
size_t Distance(const std::string& a, const std::string& b);

// Returns the known word nearest to the given one, ignoring case, or "" if more than `most` letters
// differ.
std::string Nearest(const std::string& word, const std::vector<std::string>& known, size_t most);

// Returns what to add to a message on an unknown word: the question whether the nearest one was
// meant. Returns "" if `nearest` is empty.
std::string Suggestion(const std::string& nearest);

// The same for the known word nearest to the given one; if more than `most` letters differ, the
// first of the known words.
std::string SuggestionOf(const std::string& word, const std::vector<std::string>& known,
                         size_t most);

}  // namespace extprop
