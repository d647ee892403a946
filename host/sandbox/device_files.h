// A device directory's files as the device has them, those of its partition images included.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "images.h"
#include "sandbox.h"
#include "scratch.h"
#include "view.h"

namespace sandbox {

class DeviceFiles {
  public:
    // Unpacks the images in the directory `device`. Throws std::runtime_error, naming the one at
    // fault.
    DeviceFiles(const std::string& device, const Options& options);

    // The unpacked images, and the files in the device directory that they stand for.
    const std::vector<UnpackedImage>& unpacked() const { return unpacked_; }
    const std::vector<std::string>& hidden() const { return images_.files; }

    View& view() { return *view_; }
    const View& view() const { return *view_; }

    // Throws all changes away. In a child process the changes from here on are its own.
    void Reset();

    // What Sandbox has under the same names.
    void AttachBlockDevice(const std::string& path);
    std::string Outside(const std::string& path) const;
    std::optional<ImagePlace> ImageOf(const std::string& path) const;
    std::vector<std::string> Notes() const;

    // A child process that goes on with its own copy of this must not keep the unpacked files.
    void LeaveInChild() { scratch_.LeaveInChild(); }

  private:
    std::string device_;
    Images images_;
    ScratchDirectory scratch_;
    // The partitions, which are the view's trees but the first.
    std::vector<UnpackedImage> unpacked_;
    std::optional<View> view_;
};

}  // namespace sandbox
