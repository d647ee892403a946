// The directories of the switch keys.

#include <sys/stat.h>
#include <unistd.h>

#include <android-base/logging.h>

#include "../InitExtensionPropertyImpl.h"

namespace android {
namespace init {

int createDirectory(std::string path) {
    constexpr size_t kPathLimit = 256;
    if (path.size() >= kPathLimit) return -1;
    for (size_t i = 0; i < path.size(); ++i) {
        // QUIRK: a backslash separates like a slash, and what follows the last separator is not
        // created.
        if (path[i] != '/' && path[i] != '\\') continue;
        const std::string prefix = path.substr(0, i + 1);
        if (access(prefix.c_str(), F_OK) == 0) continue;
        LOG(INFO) << "make dir: " << prefix;
        if (mkdir(prefix.c_str(), 0771) != 0) return -1;
    }
    return 0;
}

}  // namespace init
}  // namespace android
