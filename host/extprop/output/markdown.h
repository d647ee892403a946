// Summaries for the page of a change that somebody reviews: Markdown that is no more than the HTML
// which Markdown lets through, since nothing in that is taken for markup.

#pragma once

#include <string>

#include "matrix/check.h"
#include "matrix/matrix_diff.h"

namespace extprop {

// Each has at most as many characters as the services take, and says what it leaves out.
std::string MatrixMarkdown(const MatrixDifference& difference);
std::string CheckMarkdown(const CheckResult& result);

}  // namespace extprop
