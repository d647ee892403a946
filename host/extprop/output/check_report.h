// What became of expectations, for people and for the services that run tests.

#pragma once

#include <string>

#include "matrix/check.h"

namespace extprop {

std::string CheckText(const CheckResult& result);

// Returns the cases, an expectation for a variant each, as a JUnit report.
std::string JunitReport(const CheckResult& result);

}  // namespace extprop
