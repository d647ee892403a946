// The files that the command line names: what is read of them and what is written to them. What
// lies in DEVICE comes from strangers: no link in there leads anywhere else. `inputs` are files and
// directories that the command reads, DEVICE among them; empty ones count for nothing.

#pragma once

#include <stddef.h>

#include <string>
#include <vector>

namespace extprop {

// Returns the absolute path of the directory or file `device`, without links. Throws InputError if
// it cannot be used.
std::string DevicePath(const std::string& device);

// Returns the content of the file at `path`: of a regular file, or of whatever else can be read to
// its end; in a directory of `inputs` of a regular file only. Throws InputError if it cannot be
// read or has more than `limit` bytes.
std::string ReadInput(const std::string& path, const std::vector<std::string>& inputs,
                      size_t limit);

// Returns whether there is a directory at `path`. Throws InputError if a link in a directory of
// `inputs` leads there.
bool IsInputDirectory(const std::string& path, const std::vector<std::string>& inputs);

// Writes the file at `path`: whole or not at all where that is a regular file, which keeps its
// permissions, or nothing yet. Character devices, pipes and the process's own descriptors, such as
// /dev/stdout, are written through; other links are refused, as are a file of `inputs` and, in a
// directory of them, the names of images and archives. Throws InputError.
void WriteOutput(const std::string& path, const std::vector<std::string>& inputs,
                 const std::string& content);

}  // namespace extprop
