// The files of a device directory as the device sees them, including those in partition images.

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

// What follows the path in messages on files that Unreadable() returns.
inline constexpr char kDeniedToUser[] = " cannot be read by this user, though init could";

class DeviceFiles {
  public:
    // Opens the directory or file `device` of this machine and the images in it, and makes a
    // scratch directory, which it removes in the end. Throws std::runtime_error with the file that
    // is at fault.
    DeviceFiles(const std::string& device, const Options& options);
    DeviceFiles& operator=(DeviceFiles&&) = delete;

    View& view() { return *view_; }
    const View& view() const { return *view_; }

    // As Sandbox::Reset().
    void Reset();

    // These do what Sandbox's functions of the same names do.
    bool AttachBlockDevice(const std::string& path);
    std::string Read(const std::string& path, size_t most) const;
    std::optional<ImagePlace> ImageOf(const std::string& path) const;
    std::vector<std::string> Notes() const;
    std::set<std::string> Unreadable() const;
    void CheckImages() const;
    const std::vector<std::string>& packed() const { return images_.packed; }

    // Call it in a child process that goes on with a copy of this object: otherwise the scratch
    // directory would stay until the child ends.
    void LeaveInChild() { scratch_.LeaveInChild(); }

  private:
    void Restart();
    void ShowImages();
    void FindMounted();

    ScratchDirectory scratch_;
    android::base::unique_fd nothing_;  // an empty directory
    std::shared_ptr<const Tree> nothing_tree_;
    std::optional<Firmware> firmware_;
    Images images_;                     // the view's trees after the first
    std::vector<std::string> mounted_;  // names of the partitions in kPartitionMounts
    std::optional<View> view_;
};

}  // namespace sandbox
