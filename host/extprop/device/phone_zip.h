// The zip in which phones hand over a bug report. It comes from strangers, so a process reads it
// that can do nothing else.

#pragma once

#include <string>

namespace extprop {

// Returns the first text in the zip that has the section of the properties. Nothing is written
// anywhere. Throws InputError, which calls the zip `name`, if there is none or the zip is damaged.
std::string UnpackBugReport(const std::string& name, const std::string& zip);

}  // namespace extprop
