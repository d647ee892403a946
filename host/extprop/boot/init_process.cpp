#include "boot/init_process.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <link.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <thread>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/properties.h>
#include <android-base/strings.h>

#include "boot/message.h"
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

// Returns the content of a file or block device; nothing of what might have no end.
std::string Content(const std::string& path) {
    struct stat status;
    std::string content;
    if (stat(path.c_str(), &status) != 0) return "";
    if (!S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode)) return "";
    android::base::ReadFileToString(path, &content, true);
    return content;
}

// Returns the name of the library's function whose code is at `address`, or "".
std::string LibraryFunction(void* address) {
    Dl_info place;
    void* entry = nullptr;
    if (dladdr1(address, &place, &entry, RTLD_DL_SYMENT) == 0 || entry == nullptr) return "";
    const auto* symbol = static_cast<const ElfW(Sym)*>(entry);
    const auto offset = static_cast<char*>(address) - static_cast<char*>(place.dli_saddr);
    if (!android::base::EndsWith(place.dli_fname, kLibrary) ||
        offset >= static_cast<ptrdiff_t>(symbol->st_size)) {
        return "";
    }
    int status = 0;
    char* demangled = abi::__cxa_demangle(place.dli_sname, nullptr, nullptr, &status);
    std::string name = status == 0 ? demangled : place.dli_sname;
    free(demangled);
    name.erase(std::min(name.find('('), name.size()));
    // What is neither in the library's namespace nor in none comes of the standard library.
    const bool is_own = android::base::StartsWith(name, "android::init::") ||
                        name.find_first_of(":<") == std::string::npos;
    return is_own ? name.substr(name.rfind(':') + 1) : "";
}

// Returns the library's functions that lead to the caller, innermost first.
std::vector<std::string> LibraryFunctions() {
    constexpr int kMaxFrames = 64;
    static thread_local std::map<void*, std::string> names;
    void* frames[kMaxFrames];
    std::vector<std::string> functions;
    const int count = backtrace(frames, kMaxFrames);
    for (int i = 0; i < count; ++i) {
        const auto [known, is_new] = names.try_emplace(frames[i]);
        if (is_new) known->second = LibraryFunction(static_cast<char*>(frames[i]) - 1);
        if (!known->second.empty()) functions.push_back(known->second);
    }
    return functions;
}

// Returns the library's functions that lead to the caller, a function that calls itself once.
json Operations() {
    std::vector<std::string> functions = LibraryFunctions();
    functions.erase(std::unique(functions.begin(), functions.end()), functions.end());
    return functions;
}

// Returns how many property files are being loaded: more than one where they import each other.
int LoadDepth() {
    const std::vector<std::string> functions = LibraryFunctions();
    return std::count(functions.begin(), functions.end(), "load_properties_from_file_without_se");
}

// Sends what happens, from whichever thread it happens on.
class Reporter : public platform::Observer {
  public:
    Reporter(int channel, bool traced) : channel_(channel), traced_(traced) {}

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
        if (unobserved_) return;
        const bool reads = (flags & O_ACCMODE) == O_RDONLY;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (reads) {
                last_read_ = path;
            } else if (std::string_view(path) == kSplashPartition) {
                logo_source_ = last_read_;
            }
        }
        json event = {{"event", "open"}, {"path", path}, {"for", reads ? "reading" : "writing"}};
        if (traced_ && reads) {
            event["content"] = Unobserved([path] { return Content(path); });
            event["load_depth"] = LoadDepth();
        }
        Send(event);
    }

    // Reports the logo that was written since the last time: the partition was opened for it after
    // its source, and begins with it now.
    void ReportLogo() {
        if (logo_source_.empty()) return;
        const std::string logo = Unobserved([this] { return Content(logo_source_); });
        const std::string partition = Unobserved([] { return Content(kSplashPartition); });
        if (!logo.empty() && android::base::StartsWith(partition, logo)) {
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
        Send({{"event", "property"},
              {"name", name},
              {"value", value},
              {"operations", Operations()}});
    }

    void OnRestorecon(const char* path, unsigned int flags, int result) override {
        Send({{"event", "restorecon"}, {"path", path}, {"flags", flags}, {"result", result}});
    }

  private:
    // Does what the tool itself has to do in this process, without a report of it.
    template <typename Function>
    static std::string Unobserved(Function function) {
        unobserved_ = true;
        std::string result = function();
        unobserved_ = false;
        return result;
    }

    static thread_local bool unobserved_;

    std::mutex mutex_;
    int channel_;
    bool traced_;
    std::string last_read_;
    std::string logo_source_;  // what was read before the splash partition was opened for output
};

thread_local bool Reporter::unobserved_ = false;

// Hands the bind thread its requests, each once the one before is acknowledged.
void PlayInstallingService(const std::vector<std::string>& requests, Reporter* reporter) {
    using namespace std::chrono_literals;
    using android::init::kCotaBindRequest;
    constexpr char kAcknowledged[] = "null";
    constexpr auto kPatience = 5s;
    for (const std::string& request : requests) {
        reporter->Send({{"event", "request"}, {"name", kCotaBindRequest}, {"value", request}});
        platform::StoreProperty(kCotaBindRequest, request);
        bool acknowledged = request == kBindComplete;  // the thread ends without a word
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (!acknowledged && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(1ms);
            acknowledged = android::base::GetProperty(kCotaBindRequest, "") == kAcknowledged;
        }
        if (!acknowledged) reporter->Send({{"event", "unacknowledged"}, {"value", request}});
    }
}

// The extension's callback is a plain function, so it finds its reporter here.
Reporter* g_reporter = nullptr;

void OnProperties(int mode, PropertyMap properties) {
    g_reporter->ApplyProperties(
            {{"event", "callback"}, {"mode", mode}, {"operations", Operations()}}, properties);
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
    Reporter reporter(channel, plan.traced);
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
            PropertyMap loaded;
            std::set_difference(early_properties.begin(), early_properties.end(),
                                early_before.begin(), early_before.end(),
                                std::inserter(loaded, loaded.end()));
            if (!loaded.empty()) reporter.ApplyProperties({{"event", "map"}}, loaded);
            if (step.starts_bind_thread()) PlayInstallingService(plan.requests, &reporter);
            reporter.ReportLogo();
        }
        reporter.Send({{"done", true}, {"properties", platform::AllProperties()}});
    }
    return 0;
}

int SendPropertyFiles(int channel) {
    namespace fs = std::filesystem;
    const auto options = fs::directory_options::skip_permission_denied;
    std::error_code error;
    for (fs::recursive_directory_iterator entry("/", options, error), end; entry != end;
         entry.increment(error)) {
        const fs::path& path = entry->path();
        std::error_code ignored;
        if (path == "/proc" || path == "/sys") entry.disable_recursion_pending();
        if (path.extension() != ".prop" || !fs::is_regular_file(entry->symlink_status(ignored))) {
            continue;
        }
        SendMessage(channel, {{"event", "open"},
                              {"path", path.native()},
                              {"for", "reading"},
                              {"content", Content(path)}});
    }
    return 0;
}

}  // namespace extprop
