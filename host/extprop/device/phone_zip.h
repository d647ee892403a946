// Reads the zip of a phone's bug report. The zip is untrusted, so a process reads it that can do
// nothing else.

#pragma once

#include <string>

namespace extprop {

// Returns the first text in the zip that has the section of the properties. Writes no file. Throws
// InputError, in which the zip is called `name`, if there is no such text or the zip is damaged.
std::string UnpackBugReport(const std::string& name, const std::string& zip);

}  // namespace extprop
