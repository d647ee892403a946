// Reads and writes the files that the command line names. The files in DEVICE are untrusted, so no
// link in it is followed out of it. `inputs` are the files and directories that the command reads,
// DEVICE among them; empty strings are ignored.

#pragma once

#include <stddef.h>

#include <string>
#include <vector>

namespace extprop {

// Returns the absolute path, without links, of the directory or file `device`. Throws InputError if
// it cannot be used.
std::string DevicePath(const std::string& device);

// Returns the content of the file at `path`. In a directory of `inputs` it must be a regular file;
// elsewhere it may be anything that has an end, such as a pipe. Throws InputError if it cannot be
// read or has more than `limit` bytes.
std::string ReadInput(const std::string& path, const std::vector<std::string>& inputs,
                      size_t limit);

// Returns whether there is a directory at `path`. Throws InputError if a link in a directory of
// `inputs` leads there.
bool IsInputDirectory(const std::string& path, const std::vector<std::string>& inputs);

// Writes the file at `path`. A new or regular file is written whole or not at all, and keeps its
// permissions. Character devices, pipes and the process's own descriptors, such as /dev/stdout, are
// written to. Throws InputError if that fails, and for what it refuses: other links, a file of
// `inputs` and, in a directory of `inputs`, names of images and archives.
void WriteOutput(const std::string& path, const std::vector<std::string>& inputs,
                 const std::string& content);

}  // namespace extprop
