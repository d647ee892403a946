// Summaries for a review page: Markdown that consists only of HTML, in which no text of a device is
// taken for Markdown.

#pragma once

#include <string>

#include "matrix/check.h"
#include "matrix/matrix_diff.h"

namespace extprop {

// Return a text that is no longer than the services accept, and that counts what it leaves out.
std::string MatrixMarkdown(const MatrixDifference& difference);
std::string CheckMarkdown(const CheckResult& result);

}  // namespace extprop
