// What the fuzz targets share: the device's files in memory, and the library's results.

#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "InitExtensionPropertyImpl.h"
#include "platform.h"

namespace fuzz {

using android::init::PropertyMap;

// Ends the process with a message that names `what`, unless `alike`.
void Expect(bool alike, const char* what);

// Divides an input at each "|", so that seeds are readable texts. Returns at least `least` parts;
// missing ones are empty.
std::vector<std::string> Parts(const uint8_t* data, size_t size, size_t least);

// Writes the file, or removes it if the content is null.
void Put(const std::string& path, const std::string* content);
inline void Put(const std::string& path, const std::string& content) {
    Put(path, &content);
}

// Returns a file's content; "(missing)" if there is none.
std::string Get(const std::string& path);

// Removes all files, but keeps the directories that Put has made.
void Clear();

// The callback to pass to the library, and a function that returns the maps of the calls since it
// was last called.
void Callback(int mode, PropertyMap properties);
std::vector<PropertyMap> TakeCalls();

// Returns the texts of the lines that the library has logged since the last call, at the severity
// INFO and above.
std::vector<std::string> TakeLog();

// Reads a property file without its imports, as the format is documented.
PropertyMap Parse(const std::string& content);

// Returns the value of the first line that begins with the name, likewise.
std::string LookUp(const std::string& content, const std::string& name);

}  // namespace fuzz
