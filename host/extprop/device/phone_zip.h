// Reads the zip of a phone's bug report. The zip is untrusted, so a process reads it that can do
// nothing else.

#pragma once

#include <string>

namespace extprop {

// Returns the first text, by its suffix ".txt", in the zip that has the section of the properties.
// `zip` is the zip's content. Writes no file. Throws InputError, in which the zip is called `name`,
// if there is no such text, it and the texts before it have more than limits::kPhone bytes, the zip
// is truncated, damaged or encrypted, or the process dies; std::runtime_error if that cannot be
// started.
std::string UnpackBugReport(const std::string& name, const std::string& zip);

}  // namespace extprop
