// The ways to a root in which the device is "/".

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "changes.h"
#include "sandbox.h"
#include "view.h"

namespace sandbox {

class Root {
  public:
    virtual ~Root() = default;

    // Takes the calling process, a child of the root's owner, into the root for good. Returns
    // false, with errno set, if that cannot be.
    virtual bool Enter() = 0;

    // Throws all changes away. Returns false if only a new root would be without them.
    virtual bool Reset() { return false; }

    // What Sandbox has under the same names.
    virtual void AttachBlockDevice(const std::string& path) = 0;
    virtual std::string Outside(const std::string& path) const = 0;
    virtual std::vector<FileChange> TakeChanges() = 0;
    virtual std::optional<ImagePlace> ImageOf(const std::string& path) const = 0;
    virtual std::vector<std::string> Notes() const = 0;
};

// Both throw std::runtime_error, saying why, if the root cannot be had.

// A root that needs no privileges: the calls by which files are reached are led.
std::unique_ptr<Root> MakeLedRoot(std::shared_ptr<DeviceFiles> files);

// A root of the kernel's, in private namespaces: an overlay over the device directory, or a copy.
std::unique_ptr<Root> MakePrivateRoot(const std::string& device, const Options& options,
                                      bool copied);

}  // namespace sandbox
