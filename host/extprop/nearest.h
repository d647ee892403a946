// Finds the known word for which a misspelt one was probably meant. Letters are bytes. The words
// may be empty, and are used in messages as they are.

#pragma once

#include <string>
#include <vector>

namespace extprop {

// Returns how many letters must be changed, added, removed or swapped with the next one to make one
// word the other. Takes time as the product of the lengths.
size_t Distance(const std::string& a, const std::string& b);

// Returns the known word nearest to the given one, ignoring case, and of several the first. Returns
// "" if more than `most` letters differ in all of them, or for a word of more than 256 bytes.
std::string Nearest(const std::string& word, const std::vector<std::string>& known, size_t most);

// Returns what to add to a message on an unknown word: the question whether the nearest one was
// meant, such as "; did you mean 'sim'?". Returns "" if `nearest` is empty.
std::string Suggestion(const std::string& nearest);

// Returns the same for the known word nearest to the given one; if more than `most` letters differ,
// a list of the first known words, such as "; there are early, sim"; "" if there are none.
std::string SuggestionOf(const std::string& word, const std::vector<std::string>& known,
                         size_t most);

}  // namespace extprop
