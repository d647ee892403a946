// Reads and writes the files that the command line names, by paths of this machine. `inputs` are
// the files and directories that the command reads, DEVICE among them; empty strings and what does
// not exist are ignored. The files in DEVICE are untrusted, so no link in a directory of `inputs`
// is followed. What fails throws InputError with the path and the reason.

#pragma once

#include <stddef.h>

#include <optional>
#include <string>
#include <vector>

namespace extprop {

// Returns the absolute path, without links, of the directory or file `device`. Throws if there is
// none or this user cannot read it; its kind and content are not checked.
std::string DevicePath(const std::string& device);

// Returns the content of the file at `path`. In a directory of `inputs` it must be a regular file;
// elsewhere it may be anything that has an end, such as a pipe or a descriptor of this process, as
// /dev/stdin. Throws, too, if it has more than `limit` bytes.
std::string ReadInput(const std::string& path, const std::vector<std::string>& inputs,
                      size_t limit);

// Returns the descriptor of this process that the path names, such as 0 for /dev/stdin; nothing for
// any other path. What a descriptor gives can be read only once.
std::optional<int> OwnDescriptor(const std::string& path);

// Returns whether there is a directory at `path`; false if there is nothing or anything else.
// Throws if a link in a directory of `inputs` leads to a directory there.
bool IsInputDirectory(const std::string& path, const std::vector<std::string>& inputs);

// Writes the file at `path`, whose directory must exist. A regular file is replaced, or made, whole
// or not at all, and keeps its permissions. A character device, a pipe or a descriptor of this
// process, such as /dev/stdout, is written to; SIGPIPE ends this process if nobody reads the pipe
// any more. Refuses other links, block devices and files of `inputs`; in a directory of `inputs`
// also all but regular files, and names of images and archives.
void WriteOutput(const std::string& path, const std::vector<std::string>& inputs,
                 const std::string& content);

}  // namespace extprop
