// What the fuzz targets share: the device's files in memory, and the library's results. Before the
// first input the process gets a root of its own in memory, where the device's paths are.

#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "InitExtensionPropertyImpl.h"
#include "platform.h"

namespace fuzz {

using android::init::PropertyMap;

// Aborts the process with a message that names `what`, unless `alike`.
void Expect(bool alike, const char* what);

// Divides an input at each "|", so that seeds are readable texts. Returns at least `least` parts;
// missing ones are empty.
std::vector<std::string> Parts(const uint8_t* data, size_t size, size_t least);

// Writes the file at the absolute `path` and makes its directory, or removes the file if the
// content is null. Aborts the process if it cannot be written.
void Put(const std::string& path, const std::string* content);
inline void Put(const std::string& path, const std::string& content) {
    Put(path, &content);
}

// Returns a file's content; "(missing)" if there is none or it cannot be read.
std::string Get(const std::string& path);

// Removes the files that Put has written, but keeps their directories. Empties the property store,
// the calls and the log.
void Clear();

// The callback to pass to the library, which stores the properties, and a function that returns the
// maps of the calls since it was last called.
void Callback(int mode, PropertyMap properties);
std::vector<PropertyMap> TakeCalls();

// Returns the texts of the lines that the library has logged since the last call, at the severity
// INFO and above.
std::vector<std::string> TakeLog();

// Returns the properties of a property file of any content, without its imports; with `filtered`
// also what import lines set in a load with a filter. property_lines_fuzz compares it with the
// library's loader.
PropertyMap Parse(const std::string& content, bool filtered = false);

// Returns the value of the first line with an "=" that begins with the name; "" if there is none.
std::string LookUp(const std::string& content, const std::string& name);

}  // namespace fuzz
