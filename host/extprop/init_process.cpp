#include "init_process.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mount.h>

#include <mutex>
#include <stdexcept>
#include <string_view>
#include <thread>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/properties.h>
#include <android-base/strings.h>

#include "message.h"
#include "platform.h"

namespace extprop {

namespace {

constexpr char kLibrary[] = "libtesvoextproperty.so";
constexpr char kFetchFunction[] = "KSVI_FETCH_IInitExtensionProperty";

constexpr struct {
    unsigned long flag;
    const char* name;
} kMountFlags[] = {
        {MS_RDONLY, "MS_RDONLY"},   {MS_NOSUID, "MS_NOSUID"},   {MS_NODEV, "MS_NODEV"},
        {MS_NOEXEC, "MS_NOEXEC"},   {MS_REMOUNT, "MS_REMOUNT"}, {MS_DIRSYNC, "MS_DIRSYNC"},
        {MS_NOATIME, "MS_NOATIME"}, {MS_BIND, "MS_BIND"},       {MS_REC, "MS_REC"},
};

json FlagNames(unsigned long flags) {
    json names = json::array();
    for (const auto& known : kMountFlags) {
        if ((flags & known.flag) != 0) names.push_back(known.name);
    }
    return names;
}

const char* SeverityName(android::base::LogSeverity severity) {
    constexpr const char* kNames[] = {"VERBOSE", "DEBUG", "INFO", "WARNING",
                                      "ERROR",   "FATAL", "FATAL"};
    return kNames[severity];
}

// Sends what happens, from whichever thread it happens on.
class Reporter : public platform::Observer {
  public:
    explicit Reporter(int channel) : channel_(channel) {}

    void Send(const json& message) {
        std::lock_guard<std::mutex> lock(mutex_);
        SendMessage(channel_, message);
    }

    // Reports the properties that init was given, and makes them the system's.
    void ApplyProperties(json event, const PropertyMap& properties) {
        const PropertyMap before = platform::AllProperties();
        json changes = json::array();
        for (const auto& [name, value] : properties) {
            auto old = before.find(name);
            if (old != before.end() && old->second == value) continue;
            changes.push_back({{"name", name},
                               {"value", value},
                               {"previous", old == before.end() ? json() : json(old->second)}});
            platform::StoreProperty(name, value);
        }
        event["properties"] = properties;
        event["changes"] = changes;
        Send(event);
    }

    void Log(android::base::LogSeverity severity, const char* file, unsigned line,
             const char* message) {
        Send({{"event", "log"},
              {"severity", SeverityName(severity)},
              {"file", file},
              {"line", line},
              {"message", message}});
    }

    void OnOpen(const char* path, int flags) override {
        const bool reads = (flags & O_ACCMODE) == O_RDONLY;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (reads) {
                last_read_ = path;
            } else if (std::string_view(path) == kSplashPartition) {
                logo_source_ = last_read_;
            }
        }
        Send({{"event", "open"}, {"path", path}, {"for", reads ? "reading" : "writing"}});
    }

    // Reports the logo that was written since the last time: the partition was opened for it after
    // its source, and begins with it now.
    void ReportLogo() {
        if (logo_source_.empty()) return;
        platform::SetObserver(nullptr);
        std::string logo, partition;
        const bool written = android::base::ReadFileToString(logo_source_, &logo, true) &&
                             android::base::ReadFileToString(kSplashPartition, &partition, true) &&
                             android::base::StartsWith(partition, logo);
        platform::SetObserver(this);
        if (written) {
            Send({{"event", "logo"}, {"source", logo_source_}, {"bytes", logo.size()}});
        }
        logo_source_.clear();
    }

    void OnMount(const char* source, const char* target, unsigned long flags, int result,
                 int error) override {
        Send({{"event", "mount"},
              {"source", source},
              {"target", target},
              {"flags", FlagNames(flags)},
              {"error", result == 0 ? json() : json(strerror(error))}});
    }

    void OnPropertySet(const std::string& name, const std::string& value) override {
        Send({{"event", "property"}, {"name", name}, {"value", value}});
    }

    void OnRestorecon(const char* path, unsigned int flags, int result) override {
        Send({{"event", "restorecon"}, {"path", path}, {"flags", flags}, {"result", result}});
    }

  private:
    std::mutex mutex_;
    int channel_;
    std::string last_read_;
    std::string logo_source_;  // what was read before the splash partition was opened for output
};

// Hands the bind thread its requests, each once the one before is acknowledged.
void PlayInstallingService(const std::vector<std::string>& requests, Reporter* reporter) {
    using namespace std::chrono_literals;
    constexpr char kRequest[] = "sys.cota.bind.load.properties";
    constexpr char kAcknowledged[] = "null";
    constexpr auto kPatience = 5s;
    for (const std::string& request : requests) {
        platform::StoreProperty(kRequest, request);
        bool acknowledged = request == kBindComplete;  // the thread ends without a word
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (!acknowledged && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(1ms);
            acknowledged = android::base::GetProperty(kRequest, "") == kAcknowledged;
        }
        reporter->Send({{"event", "request"}, {"value", request}, {"acknowledged", acknowledged}});
    }
}

// The extension's callback is a plain function, so it finds its reporter here.
Reporter* g_reporter = nullptr;

void OnProperties(int mode, PropertyMap properties) {
    g_reporter->ApplyProperties({{"event", "callback"}, {"mode", mode}}, properties);
}

}  // namespace

FetchExtension LoadExtension() {
    void* library = dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) throw std::runtime_error(dlerror());
    void* fetch = dlsym(library, kFetchFunction);
    if (fetch == nullptr) throw std::runtime_error(dlerror());
    return reinterpret_cast<FetchExtension>(fetch);
}

int PlayInit(FetchExtension fetch, const BootPlan& plan, int channel) {
    Reporter reporter(channel);
    g_reporter = &reporter;
    android::base::SetMinimumLogSeverity(android::base::VERBOSE);
    android::base::SetLogger(
            [&reporter](android::base::LogId, android::base::LogSeverity severity, const char*,
                        const char* file, unsigned line,
                        const char* message) { reporter.Log(severity, file, line, message); });
    platform::SetObserver(&reporter);
    platform::ResetProperties(plan.properties);

    PropertyMap early_properties;
    const StepContext context{fetch(kLibrary), &early_properties, OnProperties};
    json index;
    constexpr auto kForever = std::chrono::steady_clock::time_point::max();
    while (ReceiveMessage(channel, kForever, &index) == Received::kMessage) {
        if (!index.is_null()) {
            const Step& step = plan.steps[index.get<size_t>()];
            const PropertyMap early_before = early_properties;
            step.kind->perform(context, step.argument);
            if (early_properties != early_before) {
                reporter.ApplyProperties({{"event", "map"}}, early_properties);
            }
            if (step.starts_bind_thread()) PlayInstallingService(plan.requests, &reporter);
            reporter.ReportLogo();
        }
        reporter.Send({{"done", true}, {"properties", platform::AllProperties()}});
    }
    return 0;
}

}  // namespace extprop
