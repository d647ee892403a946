// Finds the cycle of imports that made the library's loader crash.

#pragma once

#include <string>
#include <vector>

#include "boot/report.h"

namespace extprop {

// Looks at the loads that were under way when the events, those of one step, ended. Returns the
// import lines, such as "/odm/build.prop:3", that lead from one file to the next and back to the
// first, beginning with the file that was loaded first. Returns none if there is no cycle.
std::vector<std::string> ImportCycle(const std::vector<Event>& events);

}  // namespace extprop
