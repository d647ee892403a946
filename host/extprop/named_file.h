// The files that the command line names: what is read of them and what is written to them. What
// lies in DEVICE comes from strangers: no link in there leads anywhere else.

#pragma once

#include <stddef.h>

#include <string>

namespace extprop {

// Returns the absolute path of the directory or file `device`, without links. Throws InputError if
// it cannot be used.
std::string DevicePath(const std::string& device);

// Returns the content of the file at `path`: of a regular file, or of whatever else can be read to
// its end; in the directory `device` (if it is not empty) of a regular file only. Throws InputError
// if it cannot be read or has more than `limit` bytes.
std::string ReadInput(const std::string& path, const std::string& device, size_t limit);

// Writes the file at `path`: whole or not at all where that is a regular file, which keeps its
// permissions, or nothing yet. Character devices, pipes and the process's own descriptors, such as
// /dev/stdout, are written through; other links are refused. Throws InputError.
void WriteOutput(const std::string& path, const std::string& device, const std::string& content);

}  // namespace extprop
