// The forms in which users have the properties of a phone.

#pragma once

#include <map>
#include <string>

using Properties = std::map<std::string, std::string>;

std::string ListedForm(const Properties& properties);        // what getprop prints
std::string PropertyFileForm(const Properties& properties);  // of values without line ends
std::string BugReportForm(const Properties& properties);
std::string StoreForm(const Properties& properties);  // of persistent properties

// Returns a zip of the files, by their names.
std::string Zip(const std::map<std::string, std::string>& files);
