#include "checks.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>

#include <stdexcept>

namespace sandbox {

void Fail(const std::string& what) {
    throw std::runtime_error(what + ": " + strerror(errno));
}

void Check(bool done, const std::string& what) {
    if (!done) Fail(what);
}

int OpenOrThrow(const std::string& path, int flags) {
    const int fd = open(path.c_str(), flags | O_CLOEXEC);
    Check(fd != -1, path);
    return fd;
}

}  // namespace sandbox
