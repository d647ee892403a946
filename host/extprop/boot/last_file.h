// The file that a process opened last. Its parent can read it however the process has ended.

#pragma once

#include <limits.h>
#include <stdio.h>
#include <sys/mman.h>

#include <new>
#include <string>

namespace extprop {

class LastFile {
  public:
    // The memory is shared with processes that are started after this. Throws std::bad_alloc if
    // there is none.
    LastFile()
            : path_(static_cast<char*>(mmap(nullptr, PATH_MAX, PROT_READ | PROT_WRITE,
                                            MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
        if (path_ == MAP_FAILED) throw std::bad_alloc();
    }
    ~LastFile() { munmap(path_, PATH_MAX); }
    LastFile& operator=(LastFile&&) = delete;

    // Cuts off what exceeds PATH_MAX - 1 bytes. Not thread-safe.
    void Set(const char* path) { snprintf(path_, PATH_MAX, "%s", path); }

    // Returns the path, or "" if no file was opened. Call it after the process has ended.
    std::string Get() const { return path_; }

  private:
    char* path_;
};

}  // namespace extprop
