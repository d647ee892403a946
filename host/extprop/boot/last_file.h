// The file that a process opened last, known to its parent whatever the process ends of.

#pragma once

#include <limits.h>
#include <stdio.h>
#include <sys/mman.h>

#include <new>
#include <string>

namespace extprop {

class LastFile {
  public:
    // Shared with the processes that are started from here on.
    LastFile()
            : path_(static_cast<char*>(mmap(nullptr, PATH_MAX, PROT_READ | PROT_WRITE,
                                            MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
        if (path_ == MAP_FAILED) throw std::bad_alloc();
    }
    ~LastFile() { munmap(path_, PATH_MAX); }
    LastFile& operator=(LastFile&&) = delete;

    void Set(const char* path) { snprintf(path_, PATH_MAX, "%s", path); }

    // Call it when the process has ended. Empty if it opened none.
    std::string Get() const { return path_; }

  private:
    char* path_;
};

}  // namespace extprop
