// The forms in which users have the properties of a phone. Names and values are written as they
// are.

#pragma once

#include <map>
#include <string>

using Properties = std::map<std::string, std::string>;

std::string ListedForm(const Properties& properties);        // what getprop prints
std::string PropertyFileForm(const Properties& properties);  // of values without line ends
std::string BugReportForm(const Properties& properties);     // with more such lines elsewhere
std::string StoreForm(const Properties& properties);         // of persistent properties

// Returns a zip of the files, which are contents by name. Throws std::runtime_error.
std::string Zip(const std::map<std::string, std::string>& files);
