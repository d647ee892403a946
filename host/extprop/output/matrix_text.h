// Texts on the variants of a device, for people. All of them are printable and end with a line end.

#pragma once

#include <string>

#include "matrix/matrix_diff.h"
#include "matrix/summary.h"

namespace extprop {

// Returns the summary's text: each property with its values, what nothing reads, and the number of
// variants, with those in which the library failed. `has_names` means that the user named the
// properties; otherwise the text reports it if none differs. Throws json::exception if an origin,
// which may come from a file, has no text.
std::string SummaryText(const Summary& summary, bool has_names = false);

// Returns a line for each change, for each variant that only one device has, and for each that
// failed.
std::string MatrixDifferenceText(const MatrixDifference& difference);

// Returns the values of each axis and the number of chosen variants.
std::string SpaceText(const VariantSpace& space, size_t chosen);

}  // namespace extprop
