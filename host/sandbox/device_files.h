// A device directory's files as the device has them, those of its partition images included.

#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>

#include "images.h"
#include "sandbox.h"
#include "scratch.h"
#include "view.h"

namespace sandbox {

class DeviceFiles {
  public:
    // Opens the directory or file `device` and the images in it. Throws std::runtime_error, naming
    // what is at fault.
    DeviceFiles(const std::string& device, const Options& options);
    DeviceFiles& operator=(DeviceFiles&&) = delete;

    View& view() { return *view_; }
    const View& view() const { return *view_; }

    // Throws all changes away. In a child process the changes from here on are its own.
    void Reset();

    // What Sandbox has under the same names.
    bool AttachBlockDevice(const std::string& path);
    std::string Read(const std::string& path, size_t most) const;
    std::optional<ImagePlace> ImageOf(const std::string& path) const;
    std::vector<std::string> Notes() const;
    std::set<std::string> Unreadable() const;
    void CheckImages() const;
    const std::vector<std::string>& packed() const { return images_.packed; }

    // A child process that goes on with its own copy of this must not keep the private folder.
    void LeaveInChild() { scratch_.LeaveInChild(); }

  private:
    void Restart();
    void ShowImages();
    void ShowPartitionsTwice();

    ScratchDirectory scratch_;
    android::base::unique_fd nothing_;  // an empty directory
    std::shared_ptr<const Tree> nothing_tree_;
    std::optional<Firmware> firmware_;
    Images images_;  // the partitions are the view's trees but the first
    std::optional<View> view_;
};

}  // namespace sandbox
