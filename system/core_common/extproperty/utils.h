// Reading of property files, and the file utilities that it takes. No pointer may be null unless
// stated otherwise.

#pragma once

#include <string>

#include <android-base/result.h>
#include <android-base/unique_fd.h>

#include "IInitExtensionProperty.h"

// Returns the whole content of the file at `path`; a symbolic link as its last component fails.
android::base::Result<std::string> ReadFile(const std::string& path);

// Returns `nbytes` bytes of the file at `path` from byte `offset` on; bytes after the end of the
// file are zero. `nbytes` must be from 0 to 1024; any other aborts. Follows symbolic links.
android::base::Result<std::string> ReadFileWithOffset(const std::string& path, int offset,
                                                      int nbytes);

// As ReadFileWithOffset, from an open descriptor into `*content`; moves its position. On failure
// returns false with errno set; `*content` has changed.
bool ReadFdToStringWithOffset(int fd, std::string* content, int offset, int nbytes);

// Replaces the content of the file at `path` with `content`; creates it with mode 0600 if it is
// missing. A symbolic link as the last component fails. A failed write leaves what was written.
android::base::Result<void> WriteFile(const std::string& path, const std::string& content);

// Writes all of `content`. On failure returns false with errno set.
bool WriteStringToFd(const std::string& content, android::base::borrowed_fd fd);

// As WriteFile, but creates with mode 0666 and removes the file when a write fails. On failure
// returns false with errno set.
bool WriteStringToFile(const std::string& content, const std::string& path, bool follow_symlinks);

// Returns the value of the first line of the property file at `path` that begins with `name` (a
// longer name matches too) and has an "=". Empty if there is none or the file cannot be read.
std::string load_property_from_file(const char* path, const char* name);

// QUIRK: nothing in the library calls this function and the next; the loader takes any line.
// Returns whether `name` may name a property: it is not empty and has letters, digits and "._-@:"
// only, no dot first, last or after another.
bool IsLegalPropertyName(const std::string& name);

// Succeeds if `value` may be the value of the property `name`: at most 91 bytes unless the name
// begins with "ro.", and text in the encoding of the C locale. The error has the current errno.
android::base::Result<void> IsLegalPropertyValue(const std::string& name, const std::string& value);

// Returns `src` with every ${name} and ${name:-default} replaced by the system property's value,
// and "$$" by "$"; a "$" at the end is dropped. An empty value or default counts as none. Fails on
// an unset property without a default, on an empty name, without a "}", and on the unbraced form.
android::base::Result<std::string> ExpandProps(const std::string& src);

// Adds the name=value lines of the property file at `filename` to `*properties`, a later value of a
// name replacing an earlier one, and follows its "import file [filter]" lines. With a `filter` (not
// null or empty) keeps only the name that equals it or, if it ends in "*", the names that begin
// with what precedes the "*", and follows no imports. Names and values are not validated, and
// imports that form a cycle are followed until the stack overflows. Returns false only if
// `filename` itself cannot be read.
bool load_properties_from_file_without_se(const char* filename, const char* filter,
                                          android::init::PropertyMap* properties);

// Creates the directory `path`, absolute and at least two components deep, and its missing parents,
// each with mode 0755, owner and group root, and its SELinux label. Returns 0, also if the owner or
// label cannot be set, or -1 if it cannot be made or exists already.
int createCotaDirectory(std::string path);

// QUIRK: nothing in the library calls this function and the next.
// Returns `path` with a leading "/" and without one trailing "/"; the root is the empty string.
std::string trimPath(std::string path);

// Returns the directory that holds `path`, "/" if that is the root; for a path that ends in "/",
// the path without it.
std::string getPathName(std::string path);
