// Block devices whose content is a file.

#pragma once

#include <string>

#include <android-base/unique_fd.h>

namespace sandbox {

struct LoopDevice {
    std::string path;
    android::base::unique_fd fd;
};

// Makes the open file the content of a block device, which is gone when nobody has it open or
// mounted any more. `access`, O_RDONLY or O_RDWR, is what the file was opened for. Throws
// std::runtime_error if the device cannot be had; it takes root.
LoopDevice AttachLoopDevice(int file, int access);

}  // namespace sandbox
