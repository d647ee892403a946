#include "sandbox.h"

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <stdexcept>

#include "../budget.h"
#include "../filter.h"
#include "device_files.h"
#include "led_calls.h"

namespace sandbox {

std::string Name(const ImagePlace& place) {
    return place.path + " in " + place.name;
}

Sandbox::Sandbox(const std::string& device, const Options& options)
        : Sandbox(std::make_shared<DeviceFiles>(device, options)) {}

Sandbox::Sandbox(std::shared_ptr<DeviceFiles> files) : files_(std::move(files)) {
    if (!CanLeadCalls()) {
        throw std::runtime_error(filter::kNotPossible);
    }
}

void Sandbox::Reset() {
    files_->Reset();
}

Process Sandbox::Start(const std::function<int()>& function) const {
    const auto enter = [this] {
        files_->LeaveInChild();
        // Writing beyond that fails with EFBIG rather than a signal.
        signal(SIGXFSZ, SIG_IGN);
        SetLimit(RLIMIT_FSIZE, limits::kPartitionFile);
        LimitMemory(limits::kMemory);
        return chdir("/") == 0 && LeadCalls(&files_->view());
    };
    return StartProcess(enter, function);
}

Ending Sandbox::Run(const std::function<int()>& function, std::chrono::milliseconds limit) const {
    return Start(function).Wait(limit);
}

bool Sandbox::AttachBlockDevice(const std::string& path) {
    return files_->AttachBlockDevice(path);
}

std::string Sandbox::Read(const std::string& path, size_t most) const {
    return files_->Read(path, most);
}

std::vector<FileChange> Sandbox::TakeChanges() {
    return files_->view().TakeChanges();
}

const View& Sandbox::view() const {
    return files_->view();
}

std::optional<ImagePlace> Sandbox::ImageOf(const std::string& path) const {
    return files_->ImageOf(path);
}

const std::vector<std::string>& Sandbox::packed() const {
    return files_->packed();
}

void Sandbox::CheckImages() const {
    files_->CheckImages();
}

std::set<std::string> Sandbox::Unreadable() const {
    return files_->Unreadable();
}

std::vector<std::string> Sandbox::Notes() const {
    return files_->Notes();
}

}  // namespace sandbox
