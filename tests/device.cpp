#include "device.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <ostream>

#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace {

Init* g_init = nullptr;

}  // namespace

bool Call::operator==(const Call& other) const {
    return mode == other.mode && properties == other.properties;
}

std::ostream& operator<<(std::ostream& out, const Call& call) {
    return out << "mode " << call.mode << " " << testing::PrintToString(call.properties);
}

Init::Init() {
    g_init = this;
    android::base::SetMinimumLogSeverity(android::base::VERBOSE);
    android::base::SetLogger([this](android::base::LogId, android::base::LogSeverity severity,
                                    const char*, const char*, unsigned, const char* message) {
        std::lock_guard<std::mutex> lock(mutex_);
        log_.emplace_back(severity, message);
    });
    extension = KSVI_FETCH_IInitExtensionProperty("libtesvoextproperty.so");
    TakeLog();
}

void Init::Callback(int mode, PropertyMap properties) {
    for (const auto& [name, value] : properties) platform::StoreProperty(name, value);
    std::lock_guard<std::mutex> lock(g_init->mutex_);
    g_init->calls_.push_back({mode, properties});
}

std::vector<Call> Init::TakeCalls() {
    std::lock_guard<std::mutex> lock(mutex_);
    return std::exchange(calls_, {});
}

std::vector<std::string> Init::TakeLog(android::base::LogSeverity least) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> lines;
    for (const auto& [severity, message] : std::exchange(log_, {})) {
        if (severity >= least) lines.push_back(std::string(1, "VDIWEFF"[severity]) + " " + message);
    }
    return lines;
}

void Init::Set(const std::string& name, const std::string& value) {
    platform::StoreProperty(name, value);
}

std::string Init::Get(const std::string& name) {
    const PropertyMap properties = platform::AllProperties();
    auto property = properties.find(name);
    return property == properties.end() ? "(unset)" : property->second;
}

Device::Device() = default;

std::string Device::Prepare(const std::string& path) {
    const fs::path outside = root_ ? root_->Outside(path) : directory_.path + path;
    fs::create_directories(outside.parent_path());
    return outside;
}

void Device::Write(const std::string& path, const std::string& content) {
    std::ofstream(Prepare(path), std::ios::binary) << content;
}

void Device::MakeDirectory(const std::string& path) {
    fs::create_directory(Prepare(path));
}

KernelRoot& Device::root() {
    if (!root_) {
        chmod(directory_.path, 0755);
        // Not in the sandbox: tests make the kernel's own calls fail in many ways.
        root_ = std::make_unique<KernelRoot>(directory_.path);
    }
    return *root_;
}

sandbox::Ending Device::BootToTheEnd(const std::function<void(Init&)>& body,
                                     std::chrono::milliseconds limit) {
    return root().Run(
            [&body] {
                Init init;
                body(init);
                std::cout.flush();
                return testing::Test::HasFailure() ? 1 : 0;
            },
            limit);
}

void Device::Boot(const std::function<void(Init&)>& body) {
    const sandbox::Ending ending = BootToTheEnd(body);
    EXPECT_TRUE(ending.ok()) << "the boot ended with status " << ending.exit_status << ", signal "
                             << ending.signal << (ending.timed_out ? ", too late" : "");
}

std::string Device::Read(const std::string& path) {
    std::string content;
    return android::base::ReadFileToString(root().Outside(path), &content) ? content : "(missing)";
}
