#include "loop_device.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>

#include "checks.h"

using android::base::unique_fd;

namespace sandbox {

namespace {

// How often another process may take the free device that was found.
constexpr int kAttempts = 64;

}  // namespace

LoopDevice AttachLoopDevice(int file, int access) {
    const unique_fd control(OpenOrThrow("/dev/loop-control", O_RDWR));
    loop_config config = {};
    config.fd = file;
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR | (access == O_RDONLY ? LO_FLAGS_READ_ONLY : 0);
    for (int attempt = 1;; ++attempt) {
        const int number = ioctl(control.get(), LOOP_CTL_GET_FREE);
        Check(number >= 0, "no free loop device");
        const std::string path = "/dev/loop" + std::to_string(number);
        LoopDevice device{path, unique_fd(OpenOrThrow(path, access))};
        if (ioctl(device.fd.get(), LOOP_CONFIGURE, &config) == 0) return device;
        Check(errno == EBUSY && attempt < kAttempts, "cannot set up " + path);
    }
}

}  // namespace sandbox
