// What became of expectations, for the services that run tests.

#pragma once

#include <chrono>
#include <string>

#include "matrix/check.h"

namespace extprop {

// Returns the cases, an expectation for a variant each, as a JUnit report with a suite for each
// file. Their names are the same in every run; `started` is when this one began.
std::string JunitReport(const CheckResult& result, std::chrono::system_clock::time_point started);

}  // namespace extprop
