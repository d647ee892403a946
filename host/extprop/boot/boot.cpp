#include "boot/boot.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>

#include <android-base/unique_fd.h>

#include "boot/init_process.h"
#include "input_error.h"
#include "boot/message.h"
#include "sandbox.h"

namespace extprop {

namespace {

using android::base::unique_fd;
using std::chrono::steady_clock;

constexpr int kReportFormat = 1;

std::string DevicePath(const std::string& device) {
    std::error_code error;
    const auto path = std::filesystem::canonical(device, error);
    if (error) throw InputError(device + ": " + error.message());
    if (!std::filesystem::is_directory(path)) throw InputError(device + ": Not a directory");
    return path;
}

// Starts a process whose function has the other end of `*channel`.
sandbox::Process StartWithChannel(const sandbox::Sandbox& root, unique_fd* channel,
                                  const std::function<int(int)>& function) {
    unique_fd theirs;
    if (!android::base::Socketpair(SOCK_STREAM | SOCK_CLOEXEC, channel, &theirs)) {
        throw std::runtime_error(std::string("socketpair: ") + strerror(errno));
    }
    return root.Start([&] {
        channel->reset();
        return function(theirs.get());
    });
}

// Returns the device's property files with their content.
json PropertyFiles(const sandbox::Sandbox& root) {
    unique_fd channel;
    sandbox::Process process = StartWithChannel(root, &channel, SendPropertyFiles);
    json files = json::array();
    json file;
    const auto forever = steady_clock::time_point::max();
    while (ReceiveMessage(channel, forever, &file) == Received::kMessage) files.push_back(file);
    return files;
}

// One boot: the process that plays init, and what has come from it.
class BootedDevice {
  public:
    BootedDevice(const sandbox::Sandbox& root, FetchExtension fetch, const BootPlan& plan)
            : process_(Start(root, fetch, plan)), properties_(plan.properties) {}

    // Performs the step and adds its events. Returns null, or what the process did not survive.
    json Perform(const Step& step, size_t index, std::chrono::seconds limit, json* events) {
        const auto deadline = steady_clock::now() + limit;
        Received received = Await(index, deadline, events);
        if (received == Received::kMessage && step.starts_bind_thread()) {
            received = process_.WaitForThreads(deadline) ? Await(nullptr, deadline, events)
                                                         : Received::kTimeOut;
        }
        if (received == Received::kMessage) return nullptr;
        return Failure(received == Received::kTimeOut ? std::chrono::seconds(0) : limit);
    }

    // The system properties after the last step that was survived.
    const PropertyMap& properties() const { return properties_; }

  private:
    sandbox::Process Start(const sandbox::Sandbox& root, FetchExtension fetch,
                           const BootPlan& plan) {
        return StartWithChannel(root, &channel_,
                                [&](int channel) { return PlayInit(fetch, plan, channel); });
    }

    // Sends the request and collects events until it is done. Returns kMessage then.
    Received Await(const json& request, steady_clock::time_point deadline, json* events) {
        if (!SendMessage(channel_, request)) return Received::kEnd;
        json message;
        Received received;
        while ((received = ReceiveMessage(channel_, deadline, &message)) == Received::kMessage) {
            if (message.contains("done")) {
                properties_ = message["properties"].get<PropertyMap>();
                break;
            }
            if (message["event"] == "open") last_file_ = message["path"];
            events->push_back(std::move(message));
        }
        return received;
    }

    json Failure(std::chrono::seconds limit) {
        const sandbox::Ending ending = process_.Wait(limit);
        json failure = {
                {"timed_out", ending.timed_out}, {"signal", nullptr}, {"last_file", nullptr}};
        if (!ending.timed_out && ending.signal != 0) {
            failure["signal"] = std::string("SIG") + sigabbrev_np(ending.signal);
        }
        if (!last_file_.empty()) failure["last_file"] = last_file_;
        return failure;
    }

    unique_fd channel_;
    sandbox::Process process_;
    PropertyMap properties_;
    std::string last_file_;
};

// What a reboot leaves of the properties: the persistent ones as they are, and what was given.
PropertyMap AfterReboot(const PropertyMap& properties, const PropertyMap& given) {
    constexpr std::string_view kPersistent = "persist.";
    PropertyMap left;
    for (const auto& [name, value] : properties) {
        if (name.compare(0, kPersistent.size(), kPersistent) == 0) left.emplace(name, value);
    }
    left.insert(given.begin(), given.end());
    return left;
}

// Makes the splash partition, a plain file in a device directory, a block device as on a phone, if
// the plan writes to it. Where that cannot be had there is no partition, rather than a truncated
// file, and a note says why.
void PrepareSplashPartition(const BootPlan& plan, sandbox::Sandbox* root, json* notes) {
    const bool wanted = std::any_of(plan.steps.begin(), plan.steps.end(),
                                    [](const Step& step) { return step.copies_logo(); });
    if (!wanted || !std::filesystem::is_regular_file(root->Outside(kSplashPartition))) return;
    try {
        root->AttachBlockDevice(kSplashPartition);
    } catch (const std::runtime_error& error) {
        notes->push_back(std::string("the logo copy cannot be played here: ") + error.what());
        root->Run([] { return unlink(kSplashPartition); });
    }
}

json FileChanges(sandbox::Sandbox* root) {
    json files = json::array();
    for (const sandbox::FileChange& change : root->TakeChanges()) {
        files.push_back({{"path", change.path}, {"change", sandbox::Name(change.kind)}});
    }
    return files;
}

}  // namespace

json Boot(const BootOptions& options) {
    const std::string device = DevicePath(options.device);
    const FetchExtension fetch = LoadExtension();
    sandbox::Sandbox root(device);
    json report = {{"format", kReportFormat}, {"device", device},       {"notes", json::array()},
                   {"boots", json::array()},  {"steps", json::array()}, {"failure", nullptr}};
    BootPlan plan = options.plan;
    PrepareSplashPartition(plan, &root, &report["notes"]);

    int boot_number = 1;
    auto booted = std::make_unique<BootedDevice>(root, fetch, plan);
    report["boots"].push_back({{"properties", plan.properties}});
    root.TakeChanges();  // those that prepared the boot
    for (size_t i = 0; i < plan.steps.size(); ++i) {
        const Step& step = plan.steps[i];
        if (step.is_reboot()) {
            plan.properties = AfterReboot(booted->properties(), options.plan.properties);
            booted.reset();  // nothing of the old boot may still act on the files
            booted = std::make_unique<BootedDevice>(root, fetch, plan);
            report["boots"].push_back({{"properties", plan.properties}});
            ++boot_number;
            continue;
        }
        json events = json::array();
        json failure = booted->Perform(step, i, options.time_limit, &events);
        report["steps"].push_back({{"boot", boot_number},
                                   {"step", step.text},
                                   {"events", std::move(events)},
                                   {"files", FileChanges(&root)}});
        if (!failure.is_null()) {
            failure["step"] = step.text;
            report["failure"] = std::move(failure);
            break;
        }
    }
    report["properties"] = booted->properties();
    for (const std::string& note : root.Notes()) report["notes"].push_back(note);
    if (plan.traced) report["property_files"] = PropertyFiles(root);
    return report;
}

}  // namespace extprop
