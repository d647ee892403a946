// The imports in a circle that the library's loader does not survive.

#pragma once

#include <string>
#include <vector>

#include "boot/report.h"

namespace extprop {

// Returns the import lines, such as "/odm/build.prop:3", that lead from one file to the next and
// back to the first, of the loads that were under way when the events ended. The circle's file that
// was loaded first is the first. None if there is no circle.
std::vector<std::string> ImportCycle(const std::vector<Event>& events);

}  // namespace extprop
