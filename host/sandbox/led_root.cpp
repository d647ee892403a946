// The root that needs nothing of the kernel but a filter for system calls.

#include <unistd.h>

#include <stdexcept>

#include "device_files.h"
#include "led_calls.h"
#include "root.h"

namespace sandbox {

namespace {

class LedRoot : public Root {
  public:
    explicit LedRoot(std::shared_ptr<DeviceFiles> files) : files_(std::move(files)) {}

    bool Enter() override {
        files_->LeaveInChild();
        return chdir("/") == 0 && LeadCalls(&files_->view());
    }

    bool Reset() override {
        files_->Reset();
        return true;
    }

    void AttachBlockDevice(const std::string& path) override { files_->AttachBlockDevice(path); }

    std::string Outside(const std::string& path) const override { return files_->Outside(path); }

    std::vector<FileChange> TakeChanges() override { return files_->view().TakeChanges(); }

    std::optional<ImagePlace> ImageOf(const std::string& path) const override {
        return files_->ImageOf(path);
    }

    std::vector<std::string> Notes() const override { return files_->Notes(); }

  private:
    std::shared_ptr<DeviceFiles> files_;
};

}  // namespace

std::unique_ptr<Root> MakeLedRoot(std::shared_ptr<DeviceFiles> files) {
    if (!CanLeadCalls()) {
        throw std::runtime_error("the kernel takes no filters for system calls (seccomp)");
    }
    return std::make_unique<LedRoot>(std::move(files));
}

}  // namespace sandbox
