// A device directory's files as the device has them, those of its partition images included.

#pragma once

#include <string>
#include <vector>

#include "scratch.h"
#include "view.h"

namespace sandbox {

struct Options;

class DeviceFiles {
  public:
    // Unpacks the images in the directory `device` and adds to `*notes` what the user should know
    // of them. Throws std::runtime_error, naming the one at fault.
    DeviceFiles(const std::string& device, const Options& options, std::vector<std::string>* notes);

    View& view() { return view_; }
    const View& view() const { return view_; }

    // What Sandbox has under the same names.
    void AttachBlockDevice(const std::string& path);
    std::string Outside(const std::string& path) const;

    // A child process that goes on with its own copy of this must not keep the unpacked files.
    void LeaveInChild() { scratch_.LeaveInChild(); }

  private:
    std::string MakeState() const;

    ScratchDirectory scratch_;
    View view_;
};

}  // namespace sandbox
