// Texts on the variants of a device, for people.

#pragma once

#include <string>

#include "matrix/matrix_diff.h"
#include "matrix/summary.h"

namespace extprop {

// Returns the summary's text. `has_names` means that the user named the properties.
std::string SummaryText(const Summary& summary, bool has_names = false);

std::string MatrixDifferenceText(const MatrixDifference& difference);

// Returns the values of each axis and the number of chosen variants.
std::string SpaceText(const VariantSpace& space, size_t chosen);

}  // namespace extprop
