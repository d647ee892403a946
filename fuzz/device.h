// What the fuzz targets share: the device's root in memory, and what the library makes of it.

#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "InitExtensionPropertyImpl.h"
#include "platform.h"

namespace fuzz {

using android::init::PropertyMap;

// Ends the process, saying what differs, unless it is alike.
void Expect(bool alike, const char* what);

// Divides an input at each "|", so that a seed is a readable text. What is missing is empty.
std::vector<std::string> Parts(const uint8_t* data, size_t size, size_t least);

// Makes the file, or removes it when the content is null.
void Put(const std::string& path, const std::string* content);
inline void Put(const std::string& path, const std::string& content) {
    Put(path, &content);
}

// Returns a file's content; "(missing)" if there is none.
std::string Get(const std::string& path);

// Removes all files but keeps the directories that Put has made.
void Clear();

// The callback to hand to the library, and what it has got since the last time it was asked: one
// map for each call.
void Callback(int mode, PropertyMap properties);
std::vector<PropertyMap> TakeCalls();

// The texts of the lines that the library logged at the severity INFO and above, since the last
// time.
std::vector<std::string> TakeLog();

// Reads a property file without its imports, as the documents of the format have it.
PropertyMap Parse(const std::string& content);

// Reads the value of the first line that begins with the name, likewise.
std::string LookUp(const std::string& content, const std::string& name);

}  // namespace fuzz
