// Summaries for a review page: Markdown that consists only of HTML, in which no text of a device,
// which may be any bytes, is taken for Markdown. A boot that failed has rows of its own.

#pragma once

#include <string>

#include "matrix/check.h"
#include "matrix/matrix_diff.h"

namespace extprop {

// Return a text of at most 65535 bytes, which services accept. Long values are shortened in it;
// rows for which there is no room are left out and counted.
std::string MatrixMarkdown(const MatrixDifference& difference);
std::string CheckMarkdown(const CheckResult& result);

}  // namespace extprop
