// The result of a check in the format of services that run tests.

#pragma once

#include <chrono>
#include <string>

#include "matrix/check.h"

namespace extprop {

// Returns a JUnit report with a case for each expectation and variant: a failure if it is not met,
// an error if the boot failed. Each file that has cases is a suite. The result's texts may be any
// bytes. The names are the same in every run, and files are named as by PathInWorkTree(). `started`
// is the time at which this run began.
std::string JunitReport(const CheckResult& result, std::chrono::system_clock::time_point started);

}  // namespace extprop
