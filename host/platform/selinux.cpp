// Labels exist only on a device: here a request is only reported to the observer and answered.

#include <errno.h>

#include <atomic>

#include <selinux/android.h>

#include "platform.h"

namespace {

std::atomic<bool> g_fail{false};

}  // namespace

namespace platform {

void FailRestorecon(bool fail) {
    g_fail = fail;
}

}  // namespace platform

int selinux_android_restorecon(const char* path, unsigned int flags) {
    const int result = g_fail ? -1 : 0;
    if (auto* observer = platform::CurrentObserver()) observer->OnRestorecon(path, flags, result);
    if (result != 0) errno = EIO;
    return result;
}
