// What the variants of a device come to, for people.

#pragma once

#include <string>

#include "matrix/matrix_diff.h"
#include "matrix/summary.h"

namespace extprop {

// `has_names`: it is of the properties that were named.
std::string SummaryText(const Summary& summary, bool has_names = false);

std::string MatrixDifferenceText(const MatrixDifference& difference);

// Tells what each axis can be and how many variants are chosen.
std::string SpaceText(const VariantSpace& space, size_t chosen);

}  // namespace extprop
