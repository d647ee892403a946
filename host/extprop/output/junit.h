// The result of a check in the format of services that run tests.

#pragma once

#include <chrono>
#include <string>

#include "matrix/check.h"

namespace extprop {

// Returns a JUnit report with a suite for each file and a case for each expectation and variant: a
// failure if it is not met, an error if the boot failed. The names are the same in every run, and
// files are named from the work tree that holds them. `started` is the time at which this run
// began.
std::string JunitReport(const CheckResult& result, std::chrono::system_clock::time_point started);

}  // namespace extprop
